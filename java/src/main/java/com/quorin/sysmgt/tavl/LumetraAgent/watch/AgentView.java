package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventCounts;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventGroup;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritReport;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import java.util.List;
import java.util.Optional;

/**
 * What may be seen of the running agent. All methods may be called from any thread; none waits for the agent or
 * holds it up.
 */
public interface AgentView {

    /**
     * The newest snapshot: the same object until there is something new; before the first cycle one without
     * resources.
     */
    Snapshot snapshot();

    /**
     * The chart of one resource, as of its newest forecast or its newest sample; empty when there is no such
     * resource.
     */
    Optional<TrendView> trend(int id);

    /** The processes that use most of a resource; empty when there is no such resource. */
    Optional<CulpritReport> culprits(int id);

    /** At most so many of the newest events, newest first, those of earlier runs included. */
    List<Event> events(int limit);

    /** At most so many of the newest events of one resource, newest first; empty when there is no such resource. */
    Optional<List<Event>> events(int id, int limit);

    /** At most so many groups of events that repeat each other, the one with the newest event first. */
    List<EventGroup> eventGroups(int limit);

    /** The same of one resource; empty when there is no such resource. */
    Optional<List<EventGroup>> eventGroups(int id, int limit);

    /** How many events there were since the start of the process: counts that grow with every event. */
    EventCounts eventCounts();
}
