package com.quorin.sysmgt.tavl.LumetraAgent.files;

import java.util.List;

/**
 * The processes that use most of a resource. Immutable. The components' names are those of the JSON.
 *
 * @param id          the resource's number
 * @param measure     "descriptors", "residentMegabytes" or "childProcesses"; null when the agent names no processes for
 *                    this resource
 * @param measureText for people, behind a number; null as the measure is
 * @param writtenAt   when the agent wrote the report, seconds since the epoch; null without one
 * @param processes   the largest first; empty without a report
 */
public record CulpritReport(int id, String measure, String measureText, Long writtenAt, List<Culprit> processes) {}
