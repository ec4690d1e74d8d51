package com.quorin.sysmgt.tavl.LumetraAgent.score;

/**
 * An episode that ended in this process. Names are texts of bytes.
 *
 * @param number 1 for the first of the process
 */
public record EndedEpisode(long number, int id, String resource, String instance, Episode episode) {}
