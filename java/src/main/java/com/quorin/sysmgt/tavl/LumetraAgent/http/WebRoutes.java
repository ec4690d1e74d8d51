package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * The table of paths that the web server knows. Paths are compared as they were sent: nothing is decoded,
 * normalised or turned into the name of a file.
 */
public final class WebRoutes implements WebRoute {

    private final Map<String, WebRoute> exact = new LinkedHashMap<>();
    private final Map<String, WebRoute> families = new LinkedHashMap<>();

    /** Adds a path, exactly as it is sent. */
    public WebRoutes add(String path, WebRoute route) {
        exact.put(path, route);
        return this;
    }

    /** Adds all paths that start alike and are not in the table themselves. */
    public WebRoutes addFamily(String prefix, WebRoute route) {
        families.put(prefix, route);
        return this;
    }

    @Override
    public WebContent answer(String path, String query) throws WebProblem {
        return answer(path, query, List.of());
    }

    @Override
    public WebContent answer(String path, String query, List<String> accepted) throws WebProblem {
        WebRoute route = exact.get(path);
        if (route == null) {
            route = families.entrySet().stream().filter(family -> path.startsWith(family.getKey()))
                    .map(Map.Entry::getValue).findFirst()
                    .orElseThrow(() -> new WebProblem(404, "There is nothing at this path."));
        }
        return route.answer(path, query, accepted);
    }
}
