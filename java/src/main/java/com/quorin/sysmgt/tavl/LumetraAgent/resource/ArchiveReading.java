package com.quorin.sysmgt.tavl.LumetraAgent.resource;

/**
 * How far a run that begins has read its archive.
 *
 * @param read so many bytes
 * @param all  of so many; 0 when it reads none
 */
public record ArchiveReading(long read, long all) {

    public boolean isUnderWay() {
        return all > 0;
    }
}
