package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import com.fasterxml.jackson.annotation.JsonPropertyOrder;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.util.Comparator;

/**
 * One finding. The texts are readable.
 *
 * @param what   one sentence on what is so
 * @param advice what to do; null where there is nothing to be done
 */
@JsonPropertyOrder({"subject", "severity", "what", "advice"})
public record Symptom(Subject subject, Severity severity, String what, String advice) {

    static final Comparator<Symptom> WORST_FIRST =
            Comparator.comparing(Symptom::severity).thenComparing(Symptom::subject);

    public Symptom {
        what = Words.printable(what);
        advice = advice == null ? null : Words.printable(advice);
    }

    static Symptom ok(Subject subject, String what) {
        return new Symptom(subject, Severity.OK, what, null);
    }
}
