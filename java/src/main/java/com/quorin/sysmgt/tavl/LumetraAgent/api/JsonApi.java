package com.quorin.sysmgt.tavl.LumetraAgent.api;

import com.fasterxml.jackson.core.JsonGenerator;
import com.fasterxml.jackson.core.json.JsonWriteFeature;
import com.fasterxml.jackson.databind.JsonSerializer;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.fasterxml.jackson.databind.SerializerProvider;
import com.fasterxml.jackson.databind.json.JsonMapper;
import com.fasterxml.jackson.databind.module.SimpleModule;
import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventGroup;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventLine;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebContent;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebProblem;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebRoute;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Digits;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.AgentView;
import java.io.IOException;
import java.io.OutputStream;
import java.util.Iterator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.concurrent.Semaphore;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * The JSON interface below {@value #PREFIX}; docs/api.md describes it. An answer's bytes are made once for as
 * long as what they show is the same, outside any lock.
 */
public final class JsonApi implements WebRoute {

    /** Where all its paths start. */
    public static final String PREFIX = "/api/v1/";

    private static final int DEFAULT_LIMIT = 100;
    private static final int LARGEST_LIMIT = 1000;
    private static final int KEPT_ANSWERS = 32;
    private static final int KEPT_BYTES = 4 * 1024 * 1024;

    /** Making one takes several times its size, and a large machine's list of resources is megabytes. */
    private static final int MADE_AT_ONCE = 2;

    private static final Pattern OF_RESOURCE =
            Pattern.compile("resources/([^/]*)/(trend|culprits|events|event-groups)");
    private static final Pattern NUMBER = Pattern.compile("\\d{1,10}");
    private static final Pattern LIMIT = Pattern.compile("limit=(\\d{1,4})");
    private static final ObjectMapper MAPPER = mapper();

    /** The bytes, and what they were made from. */
    private record Answer(Object shown, WebContent content) {}

    /** The events as the interface wraps them. */
    private record Events(List<EventLine> events) {

        static Events of(List<Event> events) {
            return new Events(events.stream().map(EventLine::of).toList());
        }
    }

    /** JSON can spell neither NaN nor the infinite. */
    private static final class FiniteNumber extends JsonSerializer<Double> {

        @Override
        public void serialize(Double value, JsonGenerator out, SerializerProvider provider)
                throws IOException {
            if (Double.isFinite(value)) {
                out.writeNumber(Digits.of(value));
            } else {
                out.writeNull();
            }
        }
    }

    /** A short history, of which a large machine's answer consists for the most part: written as one text. */
    private static final class ShortHistory extends JsonSerializer<Snapshot.Recent> {

        @Override
        public void serialize(Snapshot.Recent recent, JsonGenerator out, SerializerProvider provider)
                throws IOException {
            StringBuilder values = new StringBuilder(8 * recent.values().size() + 2);
            for (Double value : recent.values()) {
                values.append(values.isEmpty() ? '[' : ',');
                if (value == null || !Double.isFinite(value)) {
                    values.append("null");
                } else {
                    Digits.append(values, value);
                }
            }
            out.writeStartObject();
            out.writeNumberField("from", recent.from());
            out.writeNumberField("to", recent.to());
            out.writeFieldName("values");
            out.writeRawValue(values.isEmpty() ? "[]" : values.append(']').toString());
            out.writeEndObject();
        }
    }

    /** A curve without the points that are no numbers. */
    private static final class FiniteCurve extends JsonSerializer<TrendView.Curve> {

        @Override
        public void serialize(TrendView.Curve curve, JsonGenerator out, SerializerProvider provider)
                throws IOException {
            out.writeStartObject();
            write("times", curve.times(), curve, out);
            write("values", curve.values(), curve, out);
            out.writeEndObject();
        }

        private static void write(String name, double[] numbers, TrendView.Curve curve, JsonGenerator out)
                throws IOException {
            out.writeArrayFieldStart(name);
            int points = Math.min(curve.times().length, curve.values().length);
            for (int i = 0; i < points; i++) {
                if (Double.isFinite(curve.times()[i]) && Double.isFinite(curve.values()[i])) {
                    out.writeNumber(Digits.of(numbers[i]));
                }
            }
            out.writeEndArray();
        }
    }

    /** An event, and how often it was told. */
    private record Group(EventLine event, long times, long since) {}

    /** The groups as the interface wraps them. */
    private record Groups(List<Group> groups) {

        static Groups of(List<EventGroup> groups) {
            return new Groups(groups.stream()
                    .map(group -> new Group(EventLine.of(group.newest()), group.times(), group.since())).toList());
        }
    }

    private final AgentView view;
    private final Semaphore makers = new Semaphore(MADE_AT_ONCE);
    private final Map<String, Answer> answers = new LinkedHashMap<>(16, 0.75f, true);
    private long keptBytes;

    public JsonApi(AgentView view) {
        this.view = view;
    }

    @Override
    public WebContent answer(String path, String query) throws WebProblem {
        String rest = path.substring(PREFIX.length());
        if (rest.equals("resources")) {
            WebRoute.refuseQuery(query);
            return rendered(rest, view.snapshot());
        }
        if (rest.equals("events")) {
            int limit = limit(query);
            return rendered(rest + limit, Events.of(view.events(limit)));
        }
        if (rest.equals("event-groups")) {
            int limit = limit(query);
            return rendered(rest + limit, Groups.of(view.eventGroups(limit)));
        }
        Matcher parts = OF_RESOURCE.matcher(rest);
        if (!parts.matches()) {
            throw new WebProblem(404, "There is nothing at this path; the paths are resources, events, event-groups, "
                    + "resources/ID/trend, resources/ID/culprits, resources/ID/events and resources/ID/event-groups.");
        }
        return ofResource(id(parts.group(1)), parts.group(2), query);
    }

    private WebContent ofResource(int id, String what, String query) throws WebProblem {
        Optional<?> shown;
        String key = id + what;
        if (what.startsWith("event")) {
            int limit = limit(query);
            key += limit;
            shown = what.equals("events") ? view.events(id, limit).map(Events::of)
                    : view.eventGroups(id, limit).map(Groups::of);
        } else {
            WebRoute.refuseQuery(query);
            shown = what.equals("trend") ? view.trend(id) : view.culprits(id);
        }
        return rendered(key, shown.orElseThrow(() -> noResource(Integer.toString(id))));
    }

    private static int id(String text) throws WebProblem {
        if (!NUMBER.matcher(text).matches()) {
            throw new WebProblem(400, "A resource's number is expected: 1 to 10 digits.");
        }
        long id = Long.parseLong(text);
        if (id > Integer.MAX_VALUE) {
            throw noResource(text);
        }
        return (int) id;
    }

    private static WebProblem noResource(String id) {
        return new WebProblem(404, "There is no resource " + id + ".");
    }

    private static int limit(String query) throws WebProblem {
        if (query == null) {
            return DEFAULT_LIMIT;
        }
        Matcher limit = LIMIT.matcher(query);
        int value = limit.matches() ? Integer.parseInt(limit.group(1)) : 0;
        if (value < 1 || value > LARGEST_LIMIT) {
            throw new WebProblem(400, "The one query here is limit=N, with N from 1 to "
                    + LARGEST_LIMIT + ".");
        }
        return value;
    }

    /** The bytes for what is shown: those made before when it is still the same, otherwise new ones. */
    private WebContent rendered(String key, Object shown) {
        Answer known;
        synchronized (answers) {
            known = answers.get(key);
        }
        if (known != null && isSame(known.shown, shown)) {
            return known.content;
        }
        WebContent content = made(shown);
        synchronized (answers) {
            keep(key, new Answer(shown, content));
        }
        return content;
    }

    private WebContent made(Object shown) {
        makers.acquireUninterruptibly();
        try {
            return WebContent.of(WebContent.JSON, out -> write(shown, out));
        } finally {
            makers.release();
        }
    }

    /** The newest is always kept, for as many of the others as there is room. */
    private void keep(String key, Answer answer) {
        Answer before = answers.put(key, answer);
        keptBytes += answer.content.size() - (before == null ? 0 : before.content.size());
        Iterator<Answer> eldest = answers.values().iterator();
        while (answers.size() > KEPT_ANSWERS || keptBytes > KEPT_BYTES && answers.size() > 1) {
            keptBytes -= eldest.next().content.size();
            eldest.remove();
        }
    }

    /** The view keeps its objects for as long as they are current, but may put events into a new list. */
    private static boolean isSame(Object before, Object now) {
        return before == now || (now instanceof Events || now instanceof Groups) && now.equals(before);
    }

    /** Writes an object of the interface as JSON, in UTF-8. */
    public static void write(Object shown, OutputStream out) throws IOException {
        MAPPER.writeValue(out, shown);
    }

    private static ObjectMapper mapper() {
        SimpleModule numbers = new SimpleModule();
        JsonSerializer<Double> number = new FiniteNumber();
        numbers.addSerializer(Double.class, number);
        numbers.addSerializer(Double.TYPE, number);
        numbers.addSerializer(Snapshot.Recent.class, new ShortHistory());
        numbers.addSerializer(TrendView.Curve.class, new FiniteCurve());
        // names of events as they were told: in ASCII none of them steers the terminal that the answer is shown on
        return JsonMapper.builder().enable(JsonWriteFeature.ESCAPE_NON_ASCII).addModule(numbers).build();
    }
}
