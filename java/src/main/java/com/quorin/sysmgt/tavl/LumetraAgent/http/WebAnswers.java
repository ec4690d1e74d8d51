package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.time.ZoneOffset;
import java.time.ZonedDateTime;
import java.time.format.DateTimeFormatter;
import java.util.LinkedHashMap;
import java.util.Locale;
import java.util.Map;
import java.util.Set;
import java.util.function.Consumer;

/** Answers GET and HEAD requests from a table of routes; everything else is refused. Any thread may call. */
final class WebAnswers {

    /** Made when there is memory for it. */
    private static final WebContent NO_MEMORY =
            new WebProblem(503, "The agent is short of memory; come back in a second.").content();

    /** With every answer, whatever it is. */
    private static final Map<String, String> HEADERS = Map.of(
            "Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; "
                    + "img-src 'self' data:; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                    + "frame-ancestors 'none'",
            "X-Content-Type-Options", "nosniff",
            "Referrer-Policy", "no-referrer",
            "Cross-Origin-Resource-Policy", "same-origin",
            "Cross-Origin-Opener-Policy", "same-origin",
            "Cache-Control", "no-cache");

    private static final DateTimeFormatter DATE =
            DateTimeFormatter.ofPattern("EEE, dd MMM uuuu HH:mm:ss 'GMT'", Locale.ENGLISH);

    private static final Set<String> ELSEWHERE = Set.of("cross-site", "same-site");

    private final WebRoute routes;
    private final HostCheck hosts;
    private final Consumer<Throwable> complaints;

    /**
     * Answers from a table.
     *
     * @param hosts      the names of this machine
     * @param complaints is told of each failure that is no fault of the client's
     */
    WebAnswers(WebRoute routes, HostCheck hosts, Consumer<Throwable> complaints) {
        this.routes = routes;
        this.hosts = hosts;
        this.complaints = complaints;
    }

    /** The answer to a request; one that has no memory is told so without what took it. */
    WebAnswer to(WebRequest request) {
        try {
            return made(request);
        } catch (OutOfMemoryError e) {
            complaints.accept(e);
            return answer(503, NO_MEMORY, request);
        }
    }

    /** The answer to what was no request. */
    WebAnswer to(WebProblem problem) {
        return answer(problem.status(), problem.content(), WebRequest.NONE);
    }

    private WebAnswer made(WebRequest request) {
        try {
            return answer(200, content(request), request);
        } catch (WebProblem problem) {
            return answer(problem.status(), problem.content(), request);
        } catch (RuntimeException | StackOverflowError | LinkageError e) { // a class may be lost for ever
            complaints.accept(e);
            return answer(500, new WebProblem(500, "The answer could not be made.").content(), request);
        }
    }

    private WebContent content(WebRequest request) throws WebProblem {
        if (!hosts.allows(request.all("host"))) {
            throw new WebProblem(403, "The Host header does not name this machine; "
                    + "lumetra run --allow-host allows another name.");
        }
        if (!request.method().equals("GET") && !request.method().equals("HEAD")) {
            throw new WebProblem(405, "Only GET and HEAD are allowed.");
        }
        if (request.hasBody()) {
            throw new WebProblem(400, "A request with a body is not taken.");
        }
        if (isForAnotherSite(request)) {
            throw new WebProblem(403, "This is not for pages of other sites; links to it are.");
        }
        return routes.answer(request.path(), request.query(), request.all("accept"));
    }

    /** Whether a browser asks for another site's page, and not because its user follows a link. */
    private static boolean isForAnotherSite(WebRequest request) {
        return ELSEWHERE.contains(request.joined("sec-fetch-site"))
                && !request.joined("sec-fetch-mode").equals("navigate");
    }

    private static WebAnswer answer(int status, WebContent content, WebRequest request) {
        boolean isZipped = content.isCompressible() && takesGzip(request.joined("accept-encoding"));
        Map<String, String> headers = new LinkedHashMap<>(HEADERS);
        headers.put("Date", DATE.format(ZonedDateTime.now(ZoneOffset.UTC)));
        headers.put("Content-Type", content.type());
        headers.put("ETag", content.etag(isZipped));
        if (!content.vary().isEmpty()) {
            headers.put("Vary", content.vary());
        }
        if (request.isLast()) {
            headers.put("Connection", "close");
        }
        if (status == 200 && content.isKnownTo(request.joined("if-none-match"))) {
            return new WebAnswer(304, headers, null, false, request.isLast());
        }
        if (status == 405) {
            headers.put("Allow", "GET, HEAD");
        } else if (status == 503) {
            headers.put("Retry-After", "1");
        }
        if (isZipped) {
            headers.put("Content-Encoding", "gzip");
        }
        headers.put("Content-Length", Integer.toString(content.length(isZipped)));
        return new WebAnswer(status, headers, request.method().equals("HEAD") ? null : content, isZipped,
                request.isLast());
    }

    /** Whether gzip is among the encodings and not ruled out by a quality of zero. */
    private static boolean takesGzip(String accepted) {
        for (String part : accepted.split(",")) {
            String[] words = part.split(";", 2);
            if (words[0].strip().equalsIgnoreCase("gzip")) {
                return words.length == 1 || !words[1].strip().matches("[qQ]=0(\\.0*)?");
            }
        }
        return false;
    }
}
