package com.quorin.sysmgt.tavl.LumetraAgent.check;

import java.util.List;

/**
 * A file that is checked.
 *
 * @param label    its name, readable
 * @param findings where findings about it are added
 */
record CheckedFile(String label, List<Finding> findings) {

    /**
     * Adds a finding.
     *
     * @param found   what was found, readable
     * @param details what else its message tells, readable
     */
    void add(Place place, FindingKind kind, String found, String... details) {
        findings.add(new Finding(kind, label, place, found, details));
    }

    /** Adds what the library found. */
    void add(List<LibraryFinding> found) {
        found.forEach(finding -> findings.add(finding.worded(label)));
    }
}
