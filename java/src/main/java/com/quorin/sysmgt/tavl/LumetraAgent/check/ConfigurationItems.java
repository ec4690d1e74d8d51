package com.quorin.sysmgt.tavl.LumetraAgent.check;

import java.util.List;

/**
 * The items of a configuration as the agent reads them, counted from 1 on.
 *
 * @param names   items 1 to 5, one character for each byte
 * @param numbers items 6 to 11, up to the first that the agent does not read
 */
public record ConfigurationItems(List<Place.Of<String>> names, List<Place.Of<Integer>> numbers) {

    private static final int FIRST_NUMBER = 6;

    private static final List<String> MEANINGS = List.of("the data home directory", "the archive file name",
            "the scratch pad", "the analysis log", "the resource declarations", "the period",
            "the nearest forecast", "the farthest forecast", "the archive size", "the pool tagging flag",
            "the grace period");

    /** What an item is: a noun. */
    static String meaning(int item) {
        return MEANINGS.get(item - 1);
    }

    /** A name as it is spelled. */
    public String name(int item) {
        return names.get(item - 1).value();
    }

    /** A path as the agent opens it: a zero byte ends it. */
    String path(int item) {
        return untilZeroByte(name(item));
    }

    /** The path of the archive: items 1 and 2 joined. */
    String archive() {
        return untilZeroByte(name(1) + name(2));
    }

    private static String untilZeroByte(String path) {
        int end = path.indexOf('\0');
        return end < 0 ? path : path.substring(0, end);
    }

    /** Where an item stands that is read. */
    public Place place(int item) {
        return item < FIRST_NUMBER ? names.get(item - 1).place() : numbers.get(item - FIRST_NUMBER).place();
    }

    /** A number; 0 when it is not read. */
    public int number(int item) {
        return isRead(item) ? numbers.get(item - FIRST_NUMBER).value() : 0;
    }

    /** Whether the agent reads a number: not when it is missing, malformed or behind a malformed one. */
    public boolean isRead(int item) {
        return item - FIRST_NUMBER < numbers.size();
    }
}
