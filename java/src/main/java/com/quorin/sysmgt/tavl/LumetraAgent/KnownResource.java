package com.quorin.sysmgt.tavl.LumetraAgent;

/**
 * One record of the scratch pad: which resource a number stands for. Texts are texts of bytes.
 *
 * @param type       1 for a single resource, 2 for a declaration with instances or one of them
 * @param rid        the resource's number
 * @param object     the object, or the counter's name for a system-wide resource
 * @param instance   the instance; for a disk the device, a blank and the mount point
 * @param counter    the counter
 * @param identifier "-1" for a declaration with instances, "-2" for a disk or a single resource, else a
 *                   process
 */
record KnownResource(int type, int rid, String object, String instance, String counter, String identifier) {

    /**
     * Whether it is a disk.
     *
     * @return true for the disks' declarations, too
     */
    boolean isDisk() {
        return object.equals(DeclaredResource.DISK);
    }
}
