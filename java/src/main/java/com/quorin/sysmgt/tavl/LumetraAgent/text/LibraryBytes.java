package com.quorin.sysmgt.tavl.LumetraAgent.text;

import java.nio.BufferUnderflowException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.function.Supplier;

/**
 * Reads what the library hands over as bytes: numbers little-endian, a text as its length and its bytes, a list
 * as its length and its elements, a flag as one byte. Bytes that end early, or go on behind the end, are an
 * IllegalStateException.
 */
public final class LibraryBytes {

    private final byte[] array;
    private final ByteBuffer rest;

    public LibraryBytes(byte[] array) {
        this.array = array;
        rest = ByteBuffer.wrap(array).order(ByteOrder.LITTLE_ENDIAN);
    }

    public int number() {
        return (int) read(rest::getInt);
    }

    public long longNumber() {
        return (long) read(rest::getLong);
    }

    public double real() {
        return (double) read(rest::getDouble);
    }

    public boolean flag() {
        return (byte) read(rest::get) != 0;
    }

    private Object read(Supplier<Object> value) {
        try {
            return value.get();
        } catch (BufferUnderflowException e) {
            throw wrong("end early", e);
        }
    }

    /** One character for each byte. */
    public String text() {
        int length = length();
        int start = rest.position();
        rest.position(start + length);
        return new String(array, start, length, StandardCharsets.ISO_8859_1);
    }

    public <T> List<T> list(Supplier<T> element) {
        int length = length();
        List<T> list = new ArrayList<>();
        for (int i = 0; i < length; i++) {
            list.add(element.get());
        }
        return List.copyOf(list);
    }

    /** Of a text or a list, whose elements have a byte at least. */
    private int length() {
        int length = number();
        if (length < 0 || length > rest.remaining()) {
            throw wrong("tell a length of " + length, null);
        }
        return length;
    }

    public void end() {
        if (rest.hasRemaining()) {
            throw wrong("go on", null);
        }
    }

    private IllegalStateException wrong(String what, Throwable cause) {
        return new IllegalStateException("the bytes of the library " + what + " at " + rest.position() + " of "
                + array.length, cause);
    }
}
