package com.quorin.sysmgt.tavl.LumetraAgent.check;

import java.util.List;

/**
 * A file that is checked.
 *
 * @param label    its name, readable
 * @param findings takes those about it
 */
record CheckedFile(String label, List<Finding> findings) {

    /**
     * Adds a finding. All texts are readable.
     *
     * @param details what else its message tells
     */
    void add(Place place, FindingKind kind, String found, String... details) {
        findings.add(new Finding(kind, label, place, found, details));
    }

    /** Adds what the library found. */
    void add(List<LibraryFinding> found) {
        found.forEach(finding -> findings.add(finding.worded(label)));
    }
}
