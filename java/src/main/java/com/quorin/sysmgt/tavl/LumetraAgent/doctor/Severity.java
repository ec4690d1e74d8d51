package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import com.fasterxml.jackson.annotation.JsonValue;
import java.util.Locale;

/** How much a finding matters, the worst first. */
public enum Severity {
    /** The agent does not work, or misses most of what it is for. */
    PROBLEM,
    /** Something is amiss, or will be. */
    WARNING,
    /** The agent sees less than it could, as it may be meant. */
    NOTICE,
    /** All is as it should be. */
    OK;

    /** In words, for programs and people. */
    @JsonValue
    public String word() {
        return name().toLowerCase(Locale.ROOT);
    }
}
