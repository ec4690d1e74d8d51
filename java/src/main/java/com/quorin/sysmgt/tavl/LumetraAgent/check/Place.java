package com.quorin.sysmgt.tavl.LumetraAgent.check;

/**
 * Where something stands in a file.
 *
 * @param line   from 1 on; 0 for the file as a whole
 * @param column in characters, from 1 on; 0 for the file as a whole
 */
public record Place(int line, int column) {

    /** The file as a whole. */
    static final Place NOWHERE = new Place(0, 0);

    /** What stands at a place. */
    public record Of<T>(T value, Place place) {}
}
