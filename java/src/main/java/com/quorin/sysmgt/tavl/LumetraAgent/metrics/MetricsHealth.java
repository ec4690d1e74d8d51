package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import com.quorin.sysmgt.tavl.LumetraAgent.http.WebContent;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebProblem;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebRoute;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.AgentView;
import java.nio.charset.StandardCharsets;

/** What programs ask that watch over processes: does it answer, and does it do its work. */
public final class MetricsHealth {

    /** Answers for as long as the process does. */
    public static final String HEALTHY = "/-/healthy";

    /** Answers with success while the agent's data are fresh. */
    public static final String READY = "/-/ready";

    private MetricsHealth() {}

    /** The answer that the process lives. */
    public static WebRoute healthy() {
        return WebRoute.fixed(text("Lumetra Agent is healthy.\n"));
    }

    /**
     * Whether the agent runs and its newest cycle is at most three periods old; answers 503 with the reason when it
     * is not.
     */
    public static WebRoute ready(AgentView view) {
        WebContent ready = text("Lumetra Agent is ready.\n");
        return (path, query) -> {
            WebRoute.refuseQuery(query);
            String reason = reason(view.snapshot().agent());
            if (!reason.isEmpty()) {
                throw new WebProblem(503, reason);
            }
            return ready;
        };
    }

    private static String reason(Snapshot.Agent agent) {
        if (!agent.running()) {
            return "The agent does not run.";
        }
        if (agent.newestCycleAt() == null) {
            return "The first cycle is not complete yet.";
        }
        return agent.stale() ? "The newest cycle is more than three periods old." : "";
    }

    private static WebContent text(String line) {
        return new WebContent("text/plain; charset=utf-8", line.getBytes(StandardCharsets.UTF_8));
    }
}
