package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.List;

/**
 * One resource input of the declaration file. Texts are texts of bytes.
 *
 * @param object         the argument of FindObject
 * @param instance       the argument of FindInstance
 * @param counter        the argument of FindCounter
 * @param windowHours    the length of the analysis window in hours; negative asks for automatic sizing
 * @param name           the display name
 * @param method         the analytical method: 1 forecasts against an upper limit, 2 a lower, 3 both
 * @param upperLimitAbs  the capacity to reckon with; 0 or less takes the measured one
 * @param upperLimitCalc the measured capacity, written by the agent
 */
record DeclaredResource(String object, String instance, String counter, double windowHours, String name,
        int method, double upperLimitAbs, double upperLimitCalc) {

    /** The object whose declarations stand for every mounted file system. */
    static final String DISK = "LogicalDisk";

    /**
     * Whether disks are to be watched.
     *
     * @param declared all inputs
     * @return whether one of them stands for the disks
     */
    static boolean areDisksDeclared(List<DeclaredResource> declared) {
        return declared.stream().anyMatch(input -> input.object.equals(DISK));
    }

    /**
     * Whether this input stands for instances that the agent finds by itself.
     *
     * @return true for disk and process declarations
     */
    boolean isTemplate() {
        return object.equals(DISK) || object.equals("Process");
    }
}
