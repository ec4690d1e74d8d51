package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.api.JsonApi;
import com.quorin.sysmgt.tavl.LumetraAgent.http.StaticFiles;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebRoute;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebRoutes;
import com.quorin.sysmgt.tavl.LumetraAgent.metrics.MetricsHealth;
import com.quorin.sysmgt.tavl.LumetraAgent.metrics.MetricsPage;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.AgentView;
import java.util.List;
import java.util.stream.Stream;

/** What the agent answers over HTTP: the page's files, the metrics and the JSON interface. */
public final class AgentRoutes {

    private AgentRoutes() {}

    public static WebRoutes of(AgentView view) {
        WebRoutes routes = new WebRoutes();
        StaticFiles.load().forEach((path, content) -> routes.add(path, WebRoute.fixed(content)));
        routes.add(MetricsPage.PATH, new MetricsPage(view))
                .add(MetricsHealth.HEALTHY, MetricsHealth.healthy())
                .add(MetricsHealth.READY, MetricsHealth.ready(view));
        return routes.addFamily(JsonApi.PREFIX, new JsonApi(view));
    }

    /** One path for each kind of answer that can be made now, a refusal among them. */
    public static List<String> examples(AgentView view) {
        Stream<String> always = Stream.of("", "resources", "events", "event-groups").map(JsonApi.PREFIX::concat);
        Stream<String> ofOne = view.snapshot().resources().stream().limit(1)
                .flatMap(r -> Stream.of("trend", "culprits", "events", "event-groups")
                        .map(what -> JsonApi.PREFIX + "resources/" + r.identity().id() + "/" + what));
        return Stream.of(Stream.of("/", MetricsPage.PATH), always, ofOne).flatMap(paths -> paths).toList();
    }
}
