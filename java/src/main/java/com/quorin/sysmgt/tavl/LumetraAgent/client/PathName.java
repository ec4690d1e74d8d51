package com.quorin.sysmgt.tavl.LumetraAgent.client;

import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import picocli.CommandLine.ITypeConverter;
import picocli.CommandLine.TypeConversionException;

/** Reads the name of a file or directory, which need not be there, from the command line. */
public final class PathName implements ITypeConverter<Path> {

    @Override
    public Path convert(String text) {
        if (text.isEmpty()) {
            throw new TypeConversionException("expected a path: the name is empty");
        }
        try {
            return Path.of(text);
        } catch (InvalidPathException e) {
            throw new TypeConversionException("expected a path: " + e.getMessage());
        }
    }
}
