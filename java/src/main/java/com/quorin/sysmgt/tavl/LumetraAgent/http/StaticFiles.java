package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.io.IOException;
import java.io.InputStream;
import java.io.UncheckedIOException;
import java.util.LinkedHashMap;
import java.util.Map;

/** The files of the page, a fixed list. They are read into memory once, at the start. */
public final class StaticFiles {

    /** The file that stands for the path "/". */
    private static final String START = "index.html";

    private static final String FOLDER = "/web/";
    private static final String HTML = "text/html; charset=utf-8";
    private static final String SCRIPT = "text/javascript; charset=utf-8";
    private static final String STYLE = "text/css; charset=utf-8";
    private static final String SVG = "image/svg+xml";
    private static final String TEXT = "text/plain; charset=utf-8";

    /** Name to content type. */
    private static final Map<String, String> TYPES = Map.ofEntries(
            Map.entry(START, HTML),
            Map.entry("announcements.js", SCRIPT),
            Map.entry("app.js", SCRIPT),
            Map.entry("chart.js", SCRIPT),
            Map.entry("detail.js", SCRIPT),
            Map.entry("dom.js", SCRIPT),
            Map.entry("events.js", SCRIPT),
            Map.entry("feed.js", SCRIPT),
            Map.entry("overview.js", SCRIPT),
            Map.entry("words.js", SCRIPT),
            Map.entry("style.css", STYLE),
            Map.entry("favicon.svg", SVG),
            Map.entry("uPlot.iife.min.js", SCRIPT),
            Map.entry("uPlot.min.css", STYLE),
            Map.entry("uPlot.LICENSE", TEXT));

    private StaticFiles() {}

    /** Reads all files from the program's archive, by path. */
    public static Map<String, WebContent> load() {
        Map<String, WebContent> contents = new LinkedHashMap<>();
        TYPES.forEach((name, type) -> {
            try (InputStream in = StaticFiles.class.getResourceAsStream(FOLDER + name)) {
                contents.put("/" + name, new WebContent(type, in.readAllBytes()));
            } catch (IOException e) {
                throw new UncheckedIOException("the program's archive cannot be read", e);
            }
        });
        contents.put("/", contents.get("/" + START));
        return contents;
    }
}
