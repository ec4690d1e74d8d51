package com.quorin.sysmgt.tavl.LumetraAgent;

/** Where the machine's capacities come from. No method waits for a listing of disks. */
interface Capacities {

    /** Has the disks listed anew, unless a listing is under way. */
    void ask();

    /**
     * Whether a listing is under way that may still come.
     *
     * @return false after its end, and once it is given up
     */
    boolean isListing();

    /**
     * The newest capacities.
     *
     * @return those of the last listing that came; another object after each; without disks before the first
     */
    MachineCapacities newest();
}
