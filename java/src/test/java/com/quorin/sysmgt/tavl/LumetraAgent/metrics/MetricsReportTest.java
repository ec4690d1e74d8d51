package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventCounts;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.LeftOutKind;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import java.io.ByteArrayOutputStream;
import java.math.BigDecimal;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Random;
import java.util.Set;
import java.util.stream.Collectors;
import java.util.stream.DoubleStream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

class MetricsReportTest {

    private static final long NEWEST = 10_000;
    private static final Event.Moment NOW = new Event.Moment("t", NEWEST);
    private static final String DISK = "resource=\"Space\",device=\"/dev/vda\",mountpoint=\"/data\"";

    private final EventCounts events = new EventCounts();
    private final MetricsNames names = new MetricsNames();
    private final List<Snapshot.Resource> rows = new ArrayList<>();
    private final Map<Integer, TrendReader.Resource> keys = new HashMap<>();
    private final Set<Integer> atLimit = new HashSet<>();
    private final List<Snapshot.LeftOut> leftOut = new ArrayList<>();

    private void row(int id, String name, String device, String mountpoint, ResourceState state,
            Long forecastAt, Long exhaustionAt) {
        String instance = device == null ? "" : device + " " + mountpoint;
        boolean known = forecastAt != null;
        rows.add(new Snapshot.Resource(new Snapshot.Identity(id, name, instance, device, mountpoint, "counter", null),
                new Snapshot.Reading(known ? 12.34 : null, null, 100.0, 200, null),
                new Snapshot.Standing(state, state.words(), null, null),
                new Snapshot.Forecast(null, null, exhaustionAt, known ? "Linear" : null, known ? 50.5 : null,
                        forecastAt)));
        keys.put(id, new TrendReader.Resource(name, device == null ? "_Total" : instance));
    }

    private void disk(ResourceState state, Long forecastAt, Long exhaustionAt) {
        row(7, "Space", "/dev/vda", "/data", state, forecastAt, exhaustionAt);
    }

    private String write(MetricsFormat format) {
        Snapshot.Agent agent = new Snapshot.Agent("1.0", "/home", 9000, 10_001, true, false, 4, NEWEST,
                5.0, 200, 0, 24, null, 0);
        Snapshot snapshot = new Snapshot(agent, rows, leftOut, new Snapshot.Measures(0.75, 4096, keys, atLimit));
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        MetricsReport.write(new MetricsText(format, out), snapshot, events, names);
        return out.toString(StandardCharsets.UTF_8);
    }

    private String value(String series) {
        List<String> found = Arrays.stream(write(MetricsFormat.CLASSIC).split("\n"))
                .filter(line -> line.startsWith(series + " ")).toList();
        assertEquals(1, found.size(), series);
        return found.get(0).substring(series.length() + 1);
    }

    private void tellExhaustion(String resource, String instance) {
        events.add(new Event.Exhaustion(NOW, new Event.Subject(resource, instance), 1.0, null, List.of(), null,
                Event.Background.NONE));
    }

    @Test
    void aDiskWithAForecastIsToldInFull() {
        disk(ResourceState.FORECAST, NEWEST, NEWEST + 3600);
        tellExhaustion("Space", "/dev/vda /data");
        tellExhaustion("Space", "/dev/vda /data");
        tellExhaustion("Space", "/dev/vdb /data");
        assertEquals("0.1234", value("lumetra_resource_used_ratio{" + DISK + "}"));
        assertEquals("3600", value("lumetra_resource_time_to_exhaustion_seconds{" + DISK + "}"));
        assertEquals("0.505", value("lumetra_resource_notification_level_ratio{" + DISK + "}"));
        assertEquals("1", value("lumetra_resource_state{" + DISK + ",state=\"forecast\"}"));
        assertEquals("0", value("lumetra_resource_state{" + DISK + ",state=\"at-limit\"}"));
        assertEquals("1", value("lumetra_forecast_model_info{" + DISK + ",model=\"Linear\"}"));
        assertEquals("10000", value("lumetra_forecast_timestamp_seconds{" + DISK + "}"));
        assertEquals("2", value("lumetra_events_total{" + DISK + ",type=\"exhaustion\"}"));
        assertEquals("0", value("lumetra_events_total{" + DISK + ",type=\"innerTolerance\"}"));
    }

    @Test
    void whatCameOfEarlierAnnouncementsIsTold() {
        disk(ResourceState.FORECAST, NEWEST, NEWEST + 3600);
        assertEquals("0", value("lumetra_resource_announcements{" + DISK + ",outcome=\"reached\"}"));
        assertEquals("0", value("lumetra_resource_announcements_levelled_off_in_a_row{" + DISK + "}"));
        assertEquals("NaN", value("lumetra_resource_announcement_error_seconds{" + DISK + "}"));
        Snapshot.Resource plain = rows.remove(0);
        rows.add(new Snapshot.Resource(plain.identity(), plain.reading(), plain.standing(), plain.forecast(),
                new Snapshot.Track(9, 1, 2, 6, 4, 1.2001, "announced 9 times")));
        assertEquals("1", value("lumetra_resource_announcements{" + DISK + ",outcome=\"reached\"}"));
        assertEquals("2", value("lumetra_resource_announcements{" + DISK + ",outcome=\"freed\"}"));
        assertEquals("6", value("lumetra_resource_announcements{" + DISK + ",outcome=\"levelled_off\"}"));
        assertEquals("4", value("lumetra_resource_announcements_levelled_off_in_a_row{" + DISK + "}"));
        assertEquals("4320", value("lumetra_resource_announcement_error_seconds{" + DISK + "}"));
    }

    @Test
    void aShareHasTheDigitsOfItsPercentage() {
        DoubleStream all = DoubleStream.of(0, -0.0, 100, 1e300, -1e300, 1e-300, 1e11, 123456789012.3456, 33.3333);
        DoubleStream random = new Random(1).doubles(20_000, -1, 200)
                .flatMap(v -> DoubleStream.of(v, Math.rint(v * 1e4) / 1e4));
        DoubleStream.concat(all, random).forEach(v -> assertEquals(
                BigDecimal.valueOf(v).movePointLeft(2).doubleValue() + 0.0, MetricsReport.perCent(v) + 0.0, "" + v));
        assertTrue(Double.isNaN(MetricsReport.perCent(null)));
    }

    private void leaveOut(LeftOutKind kind) {
        leftOut.add(new Snapshot.LeftOut("what", "why", kind, "rule"));
    }

    @Test
    void disksAreCountedOnceAndThoseThatAreLeftOutByTheKindOfRule() {
        disk(ResourceState.FORECAST, NEWEST, NEWEST + 3600);
        row(8, "Inodes", "/dev/vda", "/data", ResourceState.NO_LIMIT, null, null);
        row(9, "Space", "/dev/vdb", "/gone", ResourceState.ABSENT, null, null);
        row(10, "Swap", null, null, ResourceState.COLLECTING, null, null);
        assertEquals("1", value("lumetra_agent_disks_watched"));
        for (String rule : List.of("nature", "repeat", "type", "pattern", "unreadable")) {
            assertEquals("0", value("lumetra_agent_disks_left_out{rule=\"" + rule + "\"}"));
        }
        leaveOut(LeftOutKind.NATURE);
        leaveOut(LeftOutKind.NATURE);
        leaveOut(LeftOutKind.PATTERN);
        leaveOut(LeftOutKind.OTHER);
        leaveOut(null);
        assertEquals("2", value("lumetra_agent_disks_left_out{rule=\"nature\"}"));
        assertEquals("1", value("lumetra_agent_disks_left_out{rule=\"pattern\"}"));
        assertEquals("0", value("lumetra_agent_disks_left_out{rule=\"type\"}"));
        assertTrue(write(MetricsFormat.CLASSIC).lines().noneMatch(line -> line.contains("\"other\"")));
    }

    @Test
    void theAgentTellsOfItself() {
        events.add(new Event.Failure(NOW, null));
        assertEquals("4", value("lumetra_agent_cycles_total"));
        assertEquals("0.75", value("lumetra_agent_cycle_seconds_sum"));
        assertEquals("4", value("lumetra_agent_cycle_seconds_count"));
        assertEquals("4096", value("lumetra_agent_archive_bytes"));
        assertEquals("9000", value("lumetra_agent_start_time_seconds"));
        assertEquals("10000", value("lumetra_agent_newest_cycle_timestamp_seconds"));
        assertEquals("1", value("lumetra_agent_info{version=\"1.0\"}"));
        assertEquals("1",
                value("lumetra_events_total{resource=\"\",device=\"\",mountpoint=\"\",type=\"fatal\"}"));
    }

    @ParameterizedTest
    @CsvSource({"AT_LIMIT,,,0", "AT_LIMIT,10000,13600,0", "FORECAST,10000,13600,3600", "PENDING,9990,9995,0",
        "FORECAST,9990,10010,10", "STALE,10000,13600,3600", "STALE,10000,,+Inf", "STALE,,,NaN",
        "NO_EXHAUSTION,10000,,+Inf", "NO_EXHAUSTION,,,NaN", "COLLECTING,,,NaN", "UNREADABLE,10000,13600,NaN",
        "ABSENT,,,NaN", "NO_LIMIT,,,NaN"})
    void theTimeThatIsLeftFollowsTheState(
            ResourceState state, Long forecastAt, Long exhaustionAt, String expected) {
        disk(state, forecastAt, exhaustionAt);
        assertEquals(expected, value("lumetra_resource_time_to_exhaustion_seconds{" + DISK + "}"));
    }

    @Test
    void whatWasAtItsLimitWhenTheAgentStalledIsAtItsLimitStill() {
        disk(ResourceState.STALE, NEWEST, NEWEST + 3600);
        row(8, "Swap", null, null, ResourceState.STALE, NEWEST, NEWEST + 60);
        row(9, "Tasks", null, null, ResourceState.STALE, null, null);
        atLimit.addAll(List.of(7, 9));
        assertEquals("0", value("lumetra_resource_time_to_exhaustion_seconds{" + DISK + "}"));
        String none = "\",device=\"\",mountpoint=\"\"}";
        assertEquals("60", value("lumetra_resource_time_to_exhaustion_seconds{resource=\"Swap" + none));
        assertEquals("0", value("lumetra_resource_time_to_exhaustion_seconds{resource=\"Tasks" + none));
        assertEquals("1", value("lumetra_resource_state{" + DISK + ",state=\"stale\"}"));
    }

    /** The names and labels of all series without the model: it alone changes with a forecast. */
    private List<String> series() {
        return Arrays.stream(write(MetricsFormat.CLASSIC).split("\n")).filter(line -> !line.startsWith("#"))
                .map(line -> line.substring(0, line.lastIndexOf(' ')))
                .map(name -> name.replaceAll("model=\".*\"", "")).toList();
    }

    @Test
    void noSeriesComesOrGoesWithAState() {
        disk(ResourceState.FORECAST, NEWEST, NEWEST + 3600);
        List<String> before = series();
        for (ResourceState state : ResourceState.values()) {
            rows.clear();
            disk(state, null, null);
            assertEquals(before, series());
            assertEquals("1", value("lumetra_resource_state{" + DISK + ",state=\"" + state.id() + "\"}"));
            assertEquals("NaN", value("lumetra_resource_used_ratio{" + DISK + "}"));
            assertEquals("1", value("lumetra_forecast_model_info{" + DISK + ",model=\"none\"}"));
        }
    }

    @Test
    void allSeriesDifferAlsoWhereNamesDoNot() {
        for (int id = 1; id < 4; id++) {
            row(id, "Space", "/dev/vda", "/data", ResourceState.FORECAST, NEWEST, NEWEST + 60);
        }
        row(4, "Space (2)", "/dev/vda", "/data", ResourceState.FORECAST, NEWEST, NEWEST + 60);
        events.add(new Event.LimitReached(NOW, Event.Type.UPPER_TOLERANCE,
                new Event.Subject("Space", "/dev/vda /data"), 100.0));
        List<String> series = series();
        assertEquals(series.size(), series.stream().distinct().count());
        String events = Arrays.stream(write(MetricsFormat.CLASSIC).split("\n"))
                .filter(line -> line.startsWith("lumetra_events_total") && line.endsWith(" 1"))
                .collect(Collectors.joining());
        assertEquals("lumetra_events_total{" + DISK + ",type=\"upperTolerance\"} 1", events);
    }

    @Test
    void hostileNamesStayInsideTheirLabel() {
        row(1, "a\"b\\c\nd", "/dev/x", "/m\"} 1\n", ResourceState.COLLECTING, null, null);
        String text = write(MetricsFormat.OPEN);
        assertTrue(text.contains("lumetra_resource_used_ratio{resource=\"a\\\"b\\\\c\\nd\",device=\"/dev/x\","
                + "mountpoint=\"/m\\\"} 1\\n\"} NaN\n"), text);
    }

    @Test
    void theClassicFormHasFullNamesAndItsOwnTypes() {
        String text = write(MetricsFormat.CLASSIC);
        assertTrue(text.contains("\n# TYPE lumetra_events_total counter\n"));
        assertTrue(text.contains("\n# TYPE lumetra_agent_info gauge\n"));
        assertTrue(text.contains("\n# TYPE lumetra_agent_cycle_seconds summary\n"));
        assertFalse(text.contains("# UNIT"));
        assertFalse(text.contains("# EOF"));
    }

    @Test
    void openMetricsHasUnitsFamilyNamesAndAnEnd() {
        String text = write(MetricsFormat.OPEN);
        assertTrue(text.contains("\n# TYPE lumetra_events counter\n"));
        assertTrue(text.contains("\n# TYPE lumetra_agent info\n"));
        assertTrue(text.contains("\n# UNIT lumetra_agent_cycle_seconds seconds\n"));
        assertTrue(text.contains("\n# UNIT lumetra_resource_used_ratio ratio\n"));
        assertTrue(text.contains("\nlumetra_agent_cycles_total 4\n"));
        assertTrue(text.endsWith("\n# EOF\n"));
        for (String line : text.split("\n")) {
            if (line.startsWith("# UNIT ")) {
                assertTrue(line.split(" ")[2].endsWith("_" + line.split(" ")[3]), line);
            }
        }
    }

    @Test
    void thousandsOfResourcesAreToldWholeAndInOrder() {
        for (int id = 0; id < 3000; id++) {
            row(id, "Space", "/dev/vd", "/\u4e2d\ud83d\ude00" + id, ResourceState.FORECAST, NEWEST,
                    NEWEST + 60);
        }
        List<String> used = Arrays.stream(write(MetricsFormat.OPEN).split("\n"))
                .filter(line -> line.startsWith("lumetra_resource_used_ratio{")).toList();
        assertEquals(3000, used.size());
        for (int id = 0; id < 3000; id++) {
            assertEquals("lumetra_resource_used_ratio{resource=\"Space\",device=\"/dev/vd\",mountpoint=\"/"
                    + "\u4e2d\ud83d\ude00" + id + "\"} 0.1234", used.get(id));
        }
    }
}
