package com.quorin.sysmgt.tavl.LumetraAgent.client;

import picocli.CommandLine.ITypeConverter;
import picocli.CommandLine.TypeConversionException;

/** Reads a whole number between two bounds from the command line. */
public abstract class WholeNumber implements ITypeConverter<Integer> {

    private final String expected;
    private final int least;
    private final int most;

    /**
     * Both bounds are taken, too.
     *
     * @param expected what is told when something else comes, with both bounds
     */
    protected WholeNumber(String expected, int least, int most) {
        this.expected = expected;
        this.least = least;
        this.most = most;
    }

    @Override
    public final Integer convert(String text) {
        try {
            int number = Integer.parseInt(text);
            if (least <= number && number <= most) {
                return number;
            }
        } catch (NumberFormatException e) {
            // told below, like a number out of bounds
        }
        throw new TypeConversionException("expected " + expected + ", got " + (text.isEmpty() ? "nothing" : text));
    }
}
