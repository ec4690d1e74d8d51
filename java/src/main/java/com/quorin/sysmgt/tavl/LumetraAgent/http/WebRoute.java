package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.util.List;

/** What answers one path of the web server, or one family of paths. Called from several threads at once. */
@FunctionalInterface
public interface WebRoute {

    /**
     * Answers a request.
     *
     * @param path  as it was sent, percent signs and all
     * @param query as it was sent, without its question mark; null for none
     * @throws WebProblem when the answer is an error
     */
    WebContent answer(String path, String query) throws WebProblem;

    /**
     * Answers a request in the form that its sender prefers, where there are several.
     *
     * @param accepted the Accept headers
     */
    default WebContent answer(String path, String query, List<String> accepted) throws WebProblem {
        return answer(path, query);
    }

    /** A route whose content takes no query and is the same for ever. */
    static WebRoute fixed(WebContent content) {
        return (path, query) -> {
            refuseQuery(query);
            return content;
        };
    }

    /**
     * Refuses a query where none is taken.
     *
     * @param query null for none
     * @throws WebProblem 400 for any query
     */
    static void refuseQuery(String query) throws WebProblem {
        if (query != null) {
            throw new WebProblem(400, "This path takes no query.");
        }
    }
}
