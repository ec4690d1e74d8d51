package com.quorin.sysmgt.tavl.LumetraAgent.tell;

import com.fasterxml.jackson.annotation.JsonUnwrapped;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventLine;
import com.quorin.sysmgt.tavl.LumetraAgent.text.AsciiJson;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.LinkedHashMap;
import java.util.Map;

/**
 * What a program is handed of an event: one line of JSON, and the most telling members as variables.
 *
 * @param host of this machine; empty when it has none that could be shown
 * @param page where the page is; empty without one
 */
record NewsLine(News news, String host, String page) {

    /** So many characters of a text are in a variable; the JSON has them all. */
    static final int MOST_CHARACTERS = 1000;

    private static final String PREFIX = "LUMETRA_";

    /** The members of an event in their order, and what only a program is told. */
    private record Members(@JsonUnwrapped EventLine line, String outcome, boolean reminder, String text, String host,
            String page) {}

    /** One line of ASCII with its end. */
    byte[] json() throws IOException {
        String line = AsciiJson.MAPPER.writeValueAsString(new Members(news.line(),
                news.outcome() == null ? null : news.outcome().word(), news.isReminder(), text(), orNull(host),
                orNull(link())));
        return (line + "\n").getBytes(StandardCharsets.US_ASCII);
    }

    /** All variables; those that do not apply are empty. */
    Map<String, String> environment() {
        EventLine line = news.line();
        Map<String, String> all = new LinkedHashMap<>();
        all.put("PATH", "/usr/sbin:/usr/bin:/sbin:/bin");
        all.put("LC_ALL", "C.UTF-8");
        put(all, "EVENT", line.type());
        put(all, "TEXT", text());
        put(all, "TIME", line.time());
        put(all, "HOST", host);
        put(all, "PAGE", link());
        put(all, "RESOURCE", line.resource());
        put(all, "INSTANCE", line.instance());
        put(all, "SECONDS_TO_EXHAUSTION", line.secondsToExhaustion() == null ? ""
                : Long.toString(Math.round(line.secondsToExhaustion())));
        put(all, "TIME_TO_EXHAUSTION", news.timeToGo());
        put(all, "LIMIT", line.limit() == null ? "" : line.limit().toString());
        put(all, "OUTCOME", news.outcome() == null ? "" : news.outcome().word());
        put(all, "REMINDER", news.isReminder() ? "yes" : "");
        put(all, "CULPRITS", news.culprits());
        put(all, "TRACK_RECORD", line.trackRecord());
        put(all, "MESSAGE", line.message());
        return all;
    }

    private String text() {
        return host.isEmpty() ? news.sentence() : host + ": " + news.sentence();
    }

    private String link() {
        return page.isEmpty() || news.id() == null ? page : page + "#/resource/" + news.id();
    }

    private static String orNull(String text) {
        return text.isEmpty() ? null : text;
    }

    private static void put(Map<String, String> all, String name, String value) {
        String clean = Words.printable(value);
        boolean fits = clean.codePointCount(0, clean.length()) <= MOST_CHARACTERS;
        all.put(PREFIX + name, fits ? clean
                : clean.substring(0, clean.offsetByCodePoints(0, MOST_CHARACTERS - 3)) + "...");
    }
}
