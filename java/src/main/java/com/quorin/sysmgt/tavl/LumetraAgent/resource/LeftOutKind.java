package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.fasterxml.jackson.annotation.JsonValue;
import java.util.Locale;

/** Why something is not watched, in the library's order. */
public enum LeftOutKind {
    /** It is no disk, or there is no memory for it. */
    OTHER,
    /** A file system that is full by its nature. */
    NATURE,
    /** Another mount of a file system that is watched. */
    REPEAT,
    /** A rule on types. */
    TYPE,
    /** A rule on mount points. */
    PATTERN,
    /** What the listing says of the disk cannot be used. */
    UNREADABLE;

    /** The kind as programs read it. */
    @JsonValue
    public String id() {
        return name().toLowerCase(Locale.ROOT);
    }

    /**
     * What all have in common that are left out for the same reason, in a few words.
     *
     * @param rule of the kinds TYPE and PATTERN as it is written, of NATURE the type
     */
    String words(String rule) {
        return switch (this) {
            case OTHER -> "other";
            case NATURE -> rule + ", full by its nature";
            case REPEAT -> "another mount of what is watched";
            case TYPE, PATTERN -> "rule " + rule;
            case UNREADABLE -> "unclear in the listing";
        };
    }
}
