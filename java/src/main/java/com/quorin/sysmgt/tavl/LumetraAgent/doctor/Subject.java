package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import com.fasterxml.jackson.annotation.JsonValue;
import java.util.Locale;

/** What is looked at, in this order. */
public enum Subject {
    CONTAINER, DESCRIPTORS, SWAP, PROCESSES, RIGHTS, MOUNTS, DF, CLOCK, HOME, SPACE, OWNER, LOCK, CONFIGURATION, PORT,
    OPEN_FILES, THREADS, MEMORY;

    /** Its name for programs and people. */
    @JsonValue
    public String id() {
        return name().toLowerCase(Locale.ROOT).replace('_', '-');
    }
}
