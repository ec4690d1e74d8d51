package com.quorin.sysmgt.tavl.LumetraAgent.text;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.function.Supplier;

/**
 * Reads what the library hands over as bytes: numbers little-endian, a text as its length and its bytes, a list
 * as its length and its elements, a flag as one byte. Bytes that are not so are an IllegalStateException that says
 * where and what was expected.
 */
public class LibraryBytes {

    private final byte[] array;
    private final ByteBuffer bytes;
    private final String whose;

    /**
     * Bytes that are read from their beginning.
     *
     * @param whose what they are: a noun, for the message
     */
    public LibraryBytes(byte[] array, String whose) {
        this.array = array;
        this.whose = whose;
        bytes = ByteBuffer.wrap(array).order(ByteOrder.LITTLE_ENDIAN);
    }

    /** Reads the version that they begin with, which must be this one. */
    public final void version(int expected) {
        int version = number("the version");
        if (version != expected) {
            throw wrong(0, "version " + expected, "version " + version);
        }
    }

    /** There must be nothing behind what was read. */
    public final void end() {
        if (bytes.hasRemaining()) {
            throw wrong(bytes.position(), "the end", bytes.remaining() + " more bytes");
        }
    }

    public final <T> List<T> list(int leastSize, String what, Supplier<T> element) {
        int length = length(leastSize, what);
        List<T> list = new ArrayList<>(length);
        for (int i = 0; i < length; i++) {
            list.add(element.get());
        }
        return List.copyOf(list);
    }

    /** No length makes this take more memory than the bytes can fill. */
    protected final int length(int leastSize, String what) {
        int length = need(Integer.BYTES, what).getInt();
        if (length < 0 || (long) length * leastSize > bytes.remaining()) {
            throw wrong(bytes.position() - Integer.BYTES, "the length of " + what,
                    length + " with " + bytes.remaining() + " bytes left");
        }
        return length;
    }

    public final String text(String what) {
        int length = length(1, what);
        int start = bytes.position();
        bytes.position(start + length);
        return new String(array, start, length, StandardCharsets.ISO_8859_1);
    }

    /** Where the next is read. */
    protected final int position() {
        return bytes.position();
    }

    /** Passes over what is the same as a part of others; whether it is. Nothing is made. */
    protected final boolean passes(byte[] others, int from, int to) {
        int start = bytes.position();
        int end = start + to - from;
        boolean isSame = end <= array.length && Arrays.equals(array, start, end, others, from, to);
        bytes.position(isSame ? end : start);
        return isSame;
    }

    /** The one of these that is meant by its place among them. */
    public final <T> T oneOf(T[] all, String what) {
        return all[choice(0, all.length - 1, what)];
    }

    public final int choice(int least, int most, String what) {
        int value = number(what);
        if (value < least || value > most) {
            throw wrong(bytes.position() - Integer.BYTES, what + ", " + least + " to " + most, "" + value);
        }
        return value;
    }

    public final boolean flag(String what) {
        byte value = need(Byte.BYTES, what).get();
        if (value != 0 && value != 1) {
            throw wrong(bytes.position() - 1, what + ", 0 or 1", "" + value);
        }
        return value == 1;
    }

    public final int number(String what) {
        return need(Integer.BYTES, what).getInt();
    }

    public final long longNumber(String what) {
        return need(Long.BYTES, what).getLong();
    }

    public final double real(String what) {
        return need(Double.BYTES, what).getDouble();
    }

    private ByteBuffer need(int size, String what) {
        if (bytes.remaining() < size) {
            throw wrong(bytes.position(), what + " in " + size + " bytes", bytes.remaining() + " bytes");
        }
        return bytes;
    }

    private IllegalStateException wrong(int offset, String expected, String found) {
        return new IllegalStateException(whose + " is not understood: at byte " + offset
                + " it has " + found + " in the place of " + expected);
    }
}
