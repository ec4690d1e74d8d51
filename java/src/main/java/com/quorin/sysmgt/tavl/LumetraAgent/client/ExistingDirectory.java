package com.quorin.sysmgt.tavl.LumetraAgent.client;

import java.nio.file.Files;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import picocli.CommandLine.ITypeConverter;
import picocli.CommandLine.TypeConversionException;

/** Reads the name of a directory that is there from the command line. */
public final class ExistingDirectory implements ITypeConverter<Path> {

    @Override
    public Path convert(String text) {
        try {
            Path directory = Path.of(text);
            if (Files.isDirectory(directory)) {
                return directory;
            }
        } catch (InvalidPathException e) {
            // told below, like any other text that is no directory
        }
        throw new TypeConversionException("expected a directory, got \"" + text + "\"");
    }
}
