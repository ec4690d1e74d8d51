package com.quorin.sysmgt.tavl.LumetraAgent;

/**
 * The items of a configuration that the agent accepts, with their places.
 *
 * @param names   items 1 to 5, one character for each byte
 * @param places  where each of the eleven items stands; -1 for one that is not there
 * @param numbers items 6 to 11; 0 for one that the agent does not read
 * @param read    how many of the numbers the agent reads
 */
record CheckedItems(String[] names, int[] places, int[] numbers, int read) {

    /** The number of the first numeric item. */
    static final int FIRST_NUMBER = 6;

    /** The last item. */
    static final int LAST = 11;

    private static final String[] MEANINGS = {"the data home directory", "the archive file name",
        "the scratch pad", "the analysis log", "the resource declarations", "the period",
        "the nearest forecast", "the farthest forecast", "the archive size", "the pool tagging flag",
        "the grace period"};

    /**
     * What an item is.
     *
     * @param item the number of the item, from 1 on
     * @return a noun
     */
    static String meaning(int item) {
        return MEANINGS[item - 1];
    }

    /**
     * A path as the agent opens it: a zero byte ends it.
     *
     * @param item the number of the item, from 1 to 5
     * @return one character for each byte
     */
    String path(int item) {
        return untilZeroByte(names[item - 1]);
    }

    /**
     * The path of the archive.
     *
     * @return items 1 and 2 joined, one character for each byte
     */
    String archive() {
        return untilZeroByte(names[0] + names[1]);
    }

    private static String untilZeroByte(String path) {
        int end = path.indexOf('\0');
        return end < 0 ? path : path.substring(0, end);
    }

    /**
     * Where an item stands.
     *
     * @param item the number of the item, from 1 on
     * @return the place
     */
    int place(int item) {
        return places[item - 1];
    }

    /**
     * A numeric item.
     *
     * @param item the number of the item, from 6 on
     * @return its value
     */
    int number(int item) {
        return numbers[item - FIRST_NUMBER];
    }

    /**
     * Whether the agent reads a numeric item.
     *
     * @param item the number of the item, from 6 on
     * @return false when it is missing, malformed or behind a malformed one
     */
    boolean isRead(int item) {
        return item - FIRST_NUMBER < read;
    }
}
