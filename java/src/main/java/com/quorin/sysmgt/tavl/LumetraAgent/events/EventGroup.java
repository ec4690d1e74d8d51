package com.quorin.sysmgt.tavl.LumetraAgent.events;

/**
 * Events that say the same again: of one episode, or one soon after the other.
 *
 * @param newest the newest of them
 * @param times  how many there were
 * @param since  when the first of them was told, in seconds since the epoch
 */
public record EventGroup(Event newest, long times, long since) {}
