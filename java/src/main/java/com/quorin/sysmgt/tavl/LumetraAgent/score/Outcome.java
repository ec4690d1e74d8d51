package com.quorin.sysmgt.tavl.LumetraAgent.score;

import java.util.Optional;

/** How an episode ended. */
public enum Outcome {
    OPEN("open"),
    REACHED("reached"),
    FREED("freed"),
    LEVELLED_OFF("levelledOff");

    private final String word;

    Outcome(String word) {
        this.word = word;
    }

    /** The word for it in files and in JSON. */
    public String word() {
        return word;
    }

    static Optional<Outcome> of(String word) {
        for (Outcome outcome : values()) {
            if (outcome.word.equals(word)) {
                return Optional.of(outcome);
            }
        }
        return Optional.empty();
    }
}
