package com.quorin.sysmgt.tavl.LumetraAgent.text;

/** Tells on standard error what keeps going wrong, once until it is something else. One thread at a time uses it. */
public final class Complaint {

    private final String beginning;
    private String last = "";

    /** Complaints whose lines begin alike, before a colon. */
    public Complaint(String beginning) {
        this.beginning = beginning;
    }

    public void tell(Throwable problem) {
        try {
            String failure = Words.printable(problem.toString());
            if (!failure.equals(last)) {
                System.err.println(beginning + ": " + failure);
            }
            last = failure;
        } catch (OutOfMemoryError e) {
            // no memory for words either; the next time may have some
        }
    }
}
