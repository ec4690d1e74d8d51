package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import java.util.Optional;

/**
 * One thing that the library has published.
 *
 * @param serial grows from publication to publication, for as long as the process lives
 * @param cycles completed by the run so far; 0 after its start
 * @param state  how the agent stands after that cycle; empty when the run is over
 */
public record Publication(long serial, long cycles, Optional<RunState> state) {}
