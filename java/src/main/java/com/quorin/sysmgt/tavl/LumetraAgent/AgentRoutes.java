package com.quorin.sysmgt.tavl.LumetraAgent;

/** What the agent answers over HTTP: the page's files, the metrics and the JSON interface. */
final class AgentRoutes {

    private AgentRoutes() {}

    static WebRoutes of(AgentView view) {
        WebRoutes routes = new WebRoutes();
        StaticFiles.load().forEach((path, content) -> routes.add(path, WebRoute.fixed(content)));
        routes.add(MetricsPage.PATH, new MetricsPage(view))
                .add(MetricsHealth.HEALTHY, MetricsHealth.healthy())
                .add(MetricsHealth.READY, MetricsHealth.ready(view));
        return routes.addFamily(JsonApi.PREFIX, new JsonApi(view));
    }
}
