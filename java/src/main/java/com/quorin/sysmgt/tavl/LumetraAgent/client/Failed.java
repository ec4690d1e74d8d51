package com.quorin.sysmgt.tavl.LumetraAgent.client;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;

/** What a command asked for in vain; the message is one line. */
public final class Failed extends Exception {
    private static final long serialVersionUID = 1L;

    private final boolean endsAll;

    private Failed(String message, boolean endsAll) {
        super(Words.printable(message));
        this.endsAll = endsAll;
    }

    /** A failure that says nothing of what else may be asked for. */
    static Failed once(String message) {
        return new Failed(message, false);
    }

    /** A failure after which asking for something else is no use: nobody answers, or the program for it is missing. */
    static Failed forAll(String message) {
        return new Failed(message, true);
    }

    boolean endsAll() {
        return endsAll;
    }
}
