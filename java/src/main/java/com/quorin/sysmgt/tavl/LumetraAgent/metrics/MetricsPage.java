package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import com.quorin.sysmgt.tavl.LumetraAgent.events.EventCounts;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebContent;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebProblem;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebRoute;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.AgentView;
import java.util.EnumMap;
import java.util.List;
import java.util.Map;

/**
 * Answers {@value #PATH}. The text is made once for each form and for as long as nothing has changed.
 */
public final class MetricsPage implements WebRoute {

    /** Where the metrics are. */
    public static final String PATH = "/metrics";

    /** The bytes, and what they were made from. */
    private record Answer(Snapshot snapshot, long told, WebContent content) {}

    private final AgentView view;
    private final MetricsNames names = new MetricsNames();
    private final Map<MetricsFormat, Answer> answers = new EnumMap<>(MetricsFormat.class);

    public MetricsPage(AgentView view) {
        this.view = view;
    }

    @Override
    public WebContent answer(String path, String query) throws WebProblem {
        return answer(path, query, List.of());
    }

    @Override
    public WebContent answer(String path, String query, List<String> accepted) throws WebProblem {
        WebRoute.refuseQuery(query);
        return current(MetricsFormat.wantedBy(accepted));
    }

    /** An event does not wait for the next snapshot: the agent may fail before it has made one. */
    private synchronized WebContent current(MetricsFormat format) {
        Snapshot snapshot = view.snapshot();
        EventCounts events = view.eventCounts();
        long told = events.told();
        Answer known = answers.get(format);
        if (known == null || known.snapshot != snapshot || known.told != told) {
            answers.remove(format); // the old and the new need not be in the memory together
            known = new Answer(snapshot, told, WebContent.negotiated(format.contentType(),
                    out -> MetricsReport.write(new MetricsText(format, out), snapshot, events, names)));
            answers.put(format, known);
        }
        return known.content;
    }
}
