package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/** The identities of a publication, and where they stand in its bytes, by which those of the next are told. */
final class KnownIdentities {

    static final KnownIdentities NONE = new KnownIdentities(new byte[0]);

    private final byte[] bytes;
    private final List<RunResource.Identity> all = new ArrayList<>();
    private int[] begins = new int[32];
    private int[] ends = new int[32];

    /** Of bytes that nobody changes. */
    KnownIdentities(byte[] bytes) {
        this.bytes = bytes;
    }

    void add(RunResource.Identity identity, int begin, int end) {
        int place = all.size();
        if (place == ends.length) {
            begins = Arrays.copyOf(begins, 2 * place);
            ends = Arrays.copyOf(ends, 2 * place);
        }
        all.add(identity);
        begins[place] = begin;
        ends[place] = end;
    }

    int count() {
        return all.size();
    }

    boolean has(int place) {
        return place < all.size();
    }

    RunResource.Identity at(int place) {
        return all.get(place);
    }

    byte[] bytes() {
        return bytes;
    }

    int begin(int place) {
        return begins[place];
    }

    int end(int place) {
        return ends[place];
    }
}
