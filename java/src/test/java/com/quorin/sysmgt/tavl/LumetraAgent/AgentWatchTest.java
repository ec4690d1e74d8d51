package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.fasterxml.jackson.databind.ObjectMapper;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.FileTime;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.locks.LockSupport;
import java.util.function.BooleanSupplier;
import java.util.function.Supplier;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class AgentWatchTest {

    private static final long MS = 1_000_000;
    private static final long START = 1_700_000_000L;
    private static final String MEAN = "Algorithm: mean.      no exhaustion within horizon.";
    private static final String SOON = "Algorithm: hinge regression.      2.50 hours to exhaustion.";

    @TempDir
    Path home;

    private final FakeNatives natives = new FakeNatives();
    private final EventHistory events = new EventHistory();
    private final List<String> pad = new ArrayList<>();
    private final StringBuilder declarations = new StringBuilder("BeginResourceDeclaration\n");
    private String listing = "Filesystem 1K-blocks Used Available Use% Mounted on\n";
    private String swapKb = "2097148";
    private int period = 10_000;
    private int listings;
    private final FakeCapacities machine = new FakeCapacities(this::capacities);
    private long nanos = 5_000_000_000L;
    private long millis = START * 1000;
    private boolean running = true;
    private Duration patience = Duration.ofDays(1); // who is not answered waits for ever
    private AgentWatch watch;

    @BeforeEach
    void machine() throws IOException {
        Files.createDirectories(home.resolve("proc/sys/fs"));
        Files.createDirectories(home.resolve("proc/sys/kernel"));
        Files.writeString(home.resolve("proc/sys/kernel/threads-max"), "16000\n");
        Files.writeString(home.resolve("proc/sys/fs/file-nr"), "1024\t0\t9223372036854775807\n");
    }

    @AfterEach
    void theLockIsFree() {
        assertFalse(natives.lock.isLocked());
        if (watch != null) {
            watch.close();
        }
    }

    private void declare(
            String object, String instance, String counter, double window, String name, int method) {
        declarations.append(String.format(Locale.ROOT, "BeginResourceInput FindObject (%s) FindInstance (%s) "
                + "FindCounter (%s) WindowSize %f NameIs (%s) AnalyticalMethod %d UpperLimitAbs 0 "
                + "UpperLimitCalc 0 LowerLimitAbs 0 LowerLimitCalc 0 CulpritMarker (none) EndResourceInput\n",
                object, instance, counter, window, name, method));
    }

    private void swap(int id, int method) {
        declare("PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed", -1, "Swap", method);
        record(1, id, "PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed");
    }

    private void disks() {
        declare("LogicalDisk", "*", "PercentFreeSpaceUsed", -1, "Space", 1);
    }

    private void disk(int id, String instance) {
        record(2, id, "LogicalDisk", instance, "PercentFreeSpaceUsed");
    }

    private void record(int type, int id, String object, String instance, String counter) {
        pad.add("\nEvent: ResourceDefinition - Informational \n" + type + "   " + id + "   (" + object
                + ")   (" + instance + ")   (" + counter + ")   -2   \n");
        writePad();
    }

    private void writePad() {
        try {
            Files.write(home.resolve("pad"), String.join("", pad).getBytes(StandardCharsets.ISO_8859_1));
        } catch (IOException e) {
            throw new IllegalStateException(e);
        }
    }

    private MachineCapacities capacities() {
        listings++;
        DiskListing disks = DiskListing.parse(listing);
        return new MachineCapacities(home, disks, disks);
    }

    /** The real clocks, for a watch that does its work on its own thread. */
    private AgentWatch.Timing realTiming() {
        return new AgentWatch.Timing(System::currentTimeMillis, System::nanoTime, patience);
    }

    private AgentWatch.Timing timing() {
        return new AgentWatch.Timing(() -> millis, () -> nanos, patience);
    }

    private AgentConfiguration configuration() {
        String d = home + "/";
        return new AgentConfiguration(d, d + "archive", d + "pad", d + "res", period, 0, 48, 50);
    }

    private void make(Capacities capacities, AgentWatch.Timing timing) throws IOException {
        Files.writeString(home.resolve("proc/meminfo"),
                "MemTotal:        2000000 kB\nSwapTotal:       " + swapKb + " kB\n");
        Files.write(home.resolve("res"), declarations.toString().getBytes(StandardCharsets.ISO_8859_1));
        watch = new AgentWatch(configuration(), "/home/x\u001b", "1.2", () -> running,
                new TrendReader(natives), events, capacities, timing);
    }

    private void prepare() throws IOException {
        make(machine, timing());
        watch.prepare();
    }

    private void append(String text) throws IOException {
        Files.writeString(
                home.resolve("archive"), text, StandardOpenOption.CREATE, StandardOpenOption.APPEND);
    }

    /** The cycles of 2000 seconds up to now, at once. */
    private void appendTwoHundredCycles() throws IOException {
        long now = System.currentTimeMillis() / 1000;
        StringBuilder run = new StringBuilder();
        for (int i = 199; i >= 0; i--) {
            run.append(now - 10L * i).append(" 3 0 50.00 \n");
        }
        append(run.toString());
    }

    /** One cycle, so many seconds after the start, and the two looks that it takes to see all of it. */
    private void cycle(long second, Object... idsAndValues) throws IOException {
        StringBuilder line = new StringBuilder(START + second + " ");
        for (int i = 0; i < idsAndValues.length; i += 2) {
            line.append(idsAndValues[i]).append(" 0 ").append(idsAndValues[i + 1]).append(' ');
        }
        append(line + "\n");
        long then = (START + second) * 1000;
        nanos += Math.max(0, then - millis) * MS;
        millis = Math.max(millis, then);
        watch.round();
        pass(100);
    }

    private void pass(long ms) {
        nanos += ms * MS;
        millis += ms;
        watch.round();
    }

    /** So many cycles ten seconds apart, ending at the given second. */
    private void cycles(int count, long last, int id, String value) throws IOException {
        for (int i = count - 1; i >= 0; i--) {
            append(START + last - 10L * i + " " + id + " 0 " + value + " \n");
        }
        long then = (START + last) * 1000;
        nanos += Math.max(0, then - millis) * MS;
        millis = Math.max(millis, then);
        watch.round();
        pass(100);
    }

    private Snapshot.Resource only() {
        assertEquals(1, watch.snapshot().resources().size());
        return watch.snapshot().resources().get(0);
    }

    private Snapshot.Resource resource(int id) {
        return watch.snapshot().resources().stream().filter(r -> r.id() == id).findFirst().orElseThrow();
    }

    /** A forecast for swap, made in the cycle of the given second. */
    private FakeNatives.Files forecast(long second, String text, float level) {
        FakeNatives.Files f = natives.forecast("Swap_Total", (int) (START + second), text, level);
        f.samples = List.of("0.000000", "40.000000", "10.000000", "50.000000");
        f.forecast = List.of("0.000000", "40.000000", "3600.000000", "99.990000");
        return f;
    }

    @Test
    void beforeTheFirstCycleThereIsTheAgentAlone() throws IOException {
        running = false;
        prepare();
        watch.round();
        Snapshot.Agent agent = watch.snapshot().agent();
        assertEquals(new Snapshot.Agent("1.2", "/home/x\\x1b", START, START, false, false, 0, null, 10.0, 200,
                0, 48, null), agent);
        assertEquals(List.of(), watch.snapshot().resources());
        running = true;
        pass(1000);
        assertTrue(watch.snapshot().agent().running());
        assertTrue(watch.trend(1).isEmpty());
        assertTrue(watch.culprits(1).isEmpty());
        assertTrue(watch.events(1, 5).isEmpty());
    }

    @Test
    void aResourceCollectsItsSamples() throws IOException {
        swap(3, 1);
        prepare();
        cycle(0, 3, "41.27");
        assertEquals(new Snapshot.Resource(3, "Swap", "", null, null, 41.27, "2.0 GiB",
                ResourceState.COLLECTING, "collecting", null, 1, START + 1990, null, null, null, null, 100.0,
                null, new Snapshot.Recent(START, START, List.of(41.27))), only());
        cycle(12, 3, "42.00");
        assertEquals(2, only().samples());
        assertEquals(START + 12 + 198 * 12, only().firstForecastAt());
        assertEquals(2, watch.snapshot().agent().cycles());
        assertEquals(START + 12, watch.snapshot().agent().newestCycleAt());
        assertEquals(0, natives.headlines);
    }

    @Test
    void earlierRunsGiveHistoryAndNoSamples() throws IOException {
        swap(3, 1);
        for (int i = 0; i < 500; i++) {
            append(START - 5000 + 10 * i + " 3 0 10.00 \n");
        }
        prepare();
        assertEquals(List.of(), watch.snapshot().resources());
        cycle(0, 3, "20.00");
        assertEquals(1, only().samples());
        assertEquals(START - 5000, only().recent().from());
        assertEquals(60, only().recent().values().size());
        assertEquals(10.0, only().recent().values().get(0));
    }

    @Test
    void aSampleThatStandsForNoneDoesNotCount() throws IOException {
        swap(3, 1);
        prepare();
        cycle(0, 3, "-1.00");
        cycle(10, 3, "1.00");
        assertEquals(1, only().samples());
    }

    @Test
    void aShortWindowNeverForecasts() throws IOException {
        declare("PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed", 0.5, "Swap", 1);
        record(1, 3, "PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed");
        prepare();
        cycles(300, 3000, 3, "5.00");
        assertEquals(180, only().samples());
        assertNull(only().firstForecastAt());
        assertEquals(ResourceState.COLLECTING, only().state());
        assertEquals("window holds only 180 samples, a forecast needs 200", only().note());
        assertEquals(0, natives.headlines);
    }

    @Test
    void aForecastIsPendingThenFires() throws IOException {
        swap(3, 1);
        prepare();
        forecast(2000, SOON, 75);
        cycles(200, 2000, 3, "50.00");
        Snapshot.Resource r = only();
        assertEquals(ResourceState.PENDING, r.state());
        assertEquals(9000.0, r.secondsToExhaustion());
        assertEquals(START + 2000 + 9000, r.exhaustionAt());
        assertEquals("hinge regression", r.model());
        assertEquals(75.0, r.notificationLevel());
        assertEquals(100.0, r.limit());
        assertEquals(START + 2000, r.forecastAt());
        assertNull(r.firstForecastAt());
        forecast(2010, SOON, 75);
        cycle(2010, 3, "75.00");
        assertEquals(ResourceState.FORECAST, only().state());
        forecast(2020, SOON, 75);
        cycle(2020, 3, "99.96");
        assertEquals(ResourceState.AT_LIMIT, only().state());
        forecast(2025, "Algorithm: mean.      0.00 hours to exhaustion.", 75);
        cycle(2025, 3, "99.90");
        assertEquals(ResourceState.FORECAST, only().state());
        assertEquals(0.0, only().secondsToExhaustion());
        forecast(2030, MEAN, -1);
        cycle(2030, 3, "50.00");
        assertEquals(ResourceState.NO_EXHAUSTION, only().state());
        assertEquals("mean", only().model());
        assertNull(only().secondsToExhaustion());
        assertNull(only().notificationLevel());
        assertNull(only().exhaustionAt());
        assertEquals(START + 2030, only().forecastAt());
    }

    @Test
    void theHeadlineOfTheCycleIsWaitedForThreeTimesAtMost() throws IOException {
        swap(3, 1);
        prepare();
        forecast(1990, MEAN, -1);
        cycles(200, 2000, 3, "50.00");
        assertEquals(List.of(), watch.snapshot().resources());
        assertEquals(1, natives.headlines);
        forecast(2000, SOON, 75);
        pass(100);
        assertEquals(2, natives.headlines);
        assertEquals(ResourceState.PENDING, only().state());
        cycle(2010, 3, "50.00");
        pass(100);
        pass(100);
        pass(1000);
        assertEquals(5, natives.headlines);
        assertEquals(START + 2000, only().forecastAt());
        assertEquals(ResourceState.PENDING, only().state());
        pass(1000);
        assertEquals(5, natives.headlines);
    }

    @Test
    void anOldHeadlineDoesNotCount() throws IOException {
        swap(3, 1);
        prepare();
        forecast(2000, SOON, 75);
        cycles(200, 2000, 3, "50.00");
        for (int i = 1; i <= 3; i++) {
            cycle(2000 + 20 * i, 3, "50.00");
            pass(100);
            pass(100);
            assertEquals(ResourceState.PENDING, only().state());
        }
        cycle(2070, 3, "50.00");
        pass(100);
        pass(100);
        assertEquals(ResourceState.COLLECTING, only().state());
    }

    @Test
    void theLockIsLeftAloneBeforeTheNextCycle() throws IOException {
        swap(3, 1);
        prepare();
        append(START + " 3 0 1.00 \n");
        watch.round();
        forecast(2000, SOON, 75);
        for (int i = 1; i < 200; i++) {
            append(START + 10L * i + " 3 0 50.00 \n");
        }
        millis = (START + 1990) * 1000;
        watch.round();
        nanos += 9400 * MS;
        watch.round();
        assertEquals(0, natives.headlines);
        CompletableFuture<TrendView> chart = request(3);
        watch.round();
        watch.round();
        assertEquals(0, natives.headlines);
        assertFalse(chart.isDone());
        cycle(2000, 3, "50.00");
        assertEquals("forecast", chart.join().source());
    }

    private void event(String resource, String instance) {
        ObjectMapper mapper = new ObjectMapper();
        events.accept(mapper.createObjectNode().put("resource", resource).put("instance", instance));
    }

    private static void await(BooleanSupplier condition) {
        while (!condition.getAsBoolean()) {
            LockSupport.parkNanos(MS);
        }
    }

    /** Asks for a chart on another thread, as the web server does; returns once that thread waits for it. */
    private CompletableFuture<TrendView> request(int id) {
        CompletableFuture<TrendView> answer = new CompletableFuture<>();
        Thread asker = new Thread(() -> answer.complete(watch.trend(id).get()));
        asker.start();
        await(() -> answer.isDone() || asker.getState() == Thread.State.TIMED_WAITING);
        return answer;
    }

    @Test
    void anAgentThatIsSilentIsStale() throws IOException {
        swap(3, 1);
        declare("PercentFileDescriptorsUsed", "_Total", "PercentFileDescriptorsUsed", -1, "FDs", 1);
        record(1, 4, "PercentFileDescriptorsUsed", "_Total", "PercentFileDescriptorsUsed");
        prepare();
        cycle(0, 3, "50.00", 4, "0.00");
        pass(29_800);
        assertFalse(watch.snapshot().agent().stale());
        pass(200);
        assertTrue(watch.snapshot().agent().stale());
        assertEquals(ResourceState.STALE, resource(3).state());
        assertEquals(50.0, resource(3).value());
        assertEquals(ResourceState.NO_LIMIT, resource(4).state());
        assertNull(resource(4).limit());
        assertNull(resource(4).capacity());
        cycle(31, 3, "50.00", 4, "0.00");
        pass(1000);
        assertFalse(watch.snapshot().agent().stale());
        assertEquals(ResourceState.COLLECTING, resource(3).state());
        running = false;
        pass(1000);
        assertEquals(ResourceState.STALE, resource(3).state());
    }

    @Test
    void diskNamesAreSplitAndTheGoneAreAbsent() throws IOException {
        disks();
        disk(5, "/dev/vda /");
        disk(6, "my server:/x y /mnt/a b");
        disk(7, "overlay");
        listing += "/dev/vda 4 1024 1024 50% /\nmy server:/x y 4 1 1 50% /mnt/a b\n";
        prepare();
        cycle(0, 5, "50.00", 6, "60.00", 7, "70.00");
        assertEquals("/dev/vda", resource(5).device());
        assertEquals("/", resource(5).mountpoint());
        assertEquals("/dev/vda /", resource(5).instance());
        assertEquals("2.0 MiB", resource(5).capacity());
        assertEquals("Space", resource(5).resource());
        assertEquals("my server:/x y", resource(6).device());
        assertEquals("/mnt/a b", resource(6).mountpoint());
        assertEquals("overlay", resource(7).device());
        assertNull(resource(7).mountpoint());
        cycle(10, 5, "51.00");
        assertEquals(ResourceState.ABSENT, resource(6).state());
        assertNull(resource(6).value());
        assertNull(resource(6).limit());
        cycle(20, 5, "51.00", 6, "60.00");
        assertEquals(ResourceState.COLLECTING, resource(6).state());
        assertEquals(1, resource(6).samples());
        assertEquals(3, resource(5).samples());
        assertEquals(List.of(6, 5, 7),
                watch.snapshot().resources().stream().map(Snapshot.Resource::id).toList());
    }

    @Test
    void noMoreThanAThousandStayInTheListWhenTheyAreGone() throws IOException {
        disks();
        prepare();
        Object[] many = new Object[2 * 1500];
        for (int i = 0; i < 1500; i++) {
            many[2 * i] = i + 1;
            many[2 * i + 1] = "5.00";
        }
        cycle(0, many);
        assertEquals(1500, watch.snapshot().resources().size());
        cycle(10, 1, "5.00");
        assertEquals(1001, watch.snapshot().resources().size());
        assertEquals(1, watch.snapshot().resources().get(0).id());
    }

    @Test
    void theMachineIsAskedAgainForANewDiskOnceAMinuteAtMost() throws IOException {
        disks();
        disk(5, "/dev/vda /");
        disk(6, "/dev/vdb /mnt");
        listing += "/dev/vda 4 1024 1024 50% /\n";
        prepare();
        assertEquals(1, listings);
        cycle(0, 5, "50.00");
        cycle(10, 5, "50.00", 6, "1.00");
        assertNull(resource(6).capacity());
        assertEquals(ResourceState.COLLECTING, resource(6).state());
        assertEquals(1, listings);
        listing += "/dev/vdb 4 1024 0 50% /mnt\n";
        cycle(70, 5, "50.00", 6, "1.00");
        assertEquals(2, listings);
        assertEquals("1.0 MiB", resource(6).capacity());
        cycle(140, 5, "50.00", 6, "1.00");
        assertEquals(2, listings);
    }

    @Test
    void aDiskThatIsNotListedIsUnreadable() throws IOException {
        disks();
        disk(5, "/dev/vda /");
        disk(6, "/dev/vdb /covered");
        listing += "/dev/vda 4 1024 1024 50% /\n";
        prepare();
        cycle(0, 5, "50.00", 6, "1.00");
        cycle(70, 5, "50.00", 6, "1.00");
        assertEquals(ResourceState.UNREADABLE, resource(6).state());
        assertEquals("the machine does not tell how much there is of it; the value is the last that was read",
                resource(6).note());
        assertEquals(ResourceState.COLLECTING, resource(5).state());
    }

    @Test
    void withoutAListingNothingIsSaidOfDisks() throws IOException {
        disks();
        disk(5, "/dev/vda /");
        prepare();
        cycle(0, 5, "50.00");
        cycle(70, 5, "50.00");
        assertEquals(2, listings);
        assertEquals(ResourceState.COLLECTING, resource(5).state());
        assertNull(resource(5).note());
    }

    @Test
    void disksThatCannotBeListedYetAreNoticedUntilTheFirstOneComes() throws IOException {
        swap(3, 1);
        disks();
        listing = "";
        prepare();
        assertNull(watch.snapshot().agent().notice());
        cycle(0, 3, "5.00");
        assertEquals(DiskListing.AWAITED, watch.snapshot().agent().notice());
        disk(5, "/dev/vda /");
        cycle(10, 3, "5.00", 5, "50.00");
        assertNull(watch.snapshot().agent().notice());
        cycle(20, 3, "5.00");
        assertNull(watch.snapshot().agent().notice());
    }

    @Test
    void aMachineWithoutDisksMissesNone() throws IOException {
        swap(3, 1);
        disks();
        prepare();
        cycle(0, 3, "5.00");
        assertNull(watch.snapshot().agent().notice());
    }

    @Test
    void aListingThatHangsKeepsNothingBackAndIsTakenUpWhenItComes() throws IOException {
        disks();
        disk(5, "/dev/vda /");
        listing += "/dev/vda 4 1024 1024 50% /\n";
        machine.hold();
        prepare();
        cycle(0, 5, "50.00");
        assertEquals(ResourceState.COLLECTING, resource(5).state());
        assertNull(resource(5).capacity());
        cycle(70, 5, "50.00");
        assertEquals(0, listings);
        machine.letGo(true);
        pass(1000);
        assertEquals("2.0 MiB", resource(5).capacity());
    }

    @Test
    void aListingThatBeganBeforeANewDiskSaysNothingOfIt() throws IOException {
        swap(3, 1);
        disks();
        machine.hold();
        prepare();
        cycle(0, 3, "5.00");
        disk(5, "/dev/vda /");
        cycle(70, 3, "5.00", 5, "50.00");
        machine.letGo(true);
        pass(1000);
        assertEquals(ResourceState.COLLECTING, resource(5).state());
        listing += "/dev/vda 4 1024 1024 50% /\n";
        cycle(140, 3, "5.00", 5, "50.00");
        assertEquals("2.0 MiB", resource(5).capacity());
    }

    @Test
    void aMachineWithoutSwapSaysSo() throws IOException {
        swapKb = "0";
        swap(3, 1);
        prepare();
        cycle(0, 3, "0.00");
        assertEquals(ResourceState.ABSENT, only().state());
        assertEquals("this machine has no swap space", only().note());
        assertNull(only().value());
    }

    @Test
    void aRecordThatComesLaterIsFound() throws IOException {
        prepare();
        cycle(0, 3, "5.00");
        assertEquals("resource 3", only().resource());
        assertEquals("its record is not in the scratch pad", only().note());
        swap(3, 1);
        cycle(10, 3, "5.00");
        assertEquals("PercentSwapSpaceUsed", only().resource());
        assertNull(only().note());
    }

    @Test
    void hostileNamesAreShownEscapedAndAskedForRaw() throws IOException {
        disks();
        disk(5, "/dev/\u001b[2J /m\nn\u00c3\u00a9)x\u00ff");
        String instance = "/dev/\u001b[2J /m\nn\u00e9)x\ufffd";
        natives.descriptors.addAll(List.of("Space", "*", "Space", instance));
        prepare();
        cycles(200, 2000, 5, "50.00");
        pass(100);
        pass(100);
        assertEquals("/dev/\\x1b[2J", only().device());
        assertEquals("/m\\nn\u00e9)x\\xff", only().mountpoint());
        assertEquals(List.of("Space_dev_\u001b[2J__m\nn\u00e9)x\ufffd"),
                natives.asked.stream().distinct().toList());
        event("Space", instance);
        assertEquals(1, watch.events(5, 10).get().size());
    }

    @Test
    void aNameThatTheAgentHasCutIsFound() throws IOException {
        String name = "n".repeat(140);
        declare("PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed", -1, name, 1);
        record(1, 3, "PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed");
        natives.descriptors.addAll(List.of(name.substring(0, 127), "_Total", "Other", "_Total"));
        prepare();
        cycles(200, 2000, 3, "50.00");
        assertEquals(name.substring(0, 127) + "_Total", natives.asked.get(0));
    }

    @Test
    void aChartBeforeTheForecastIsTheArchives() throws IOException {
        swap(3, 1);
        append(START - 10 + " 3 0 12.34 \n");
        make(machine, realTiming());
        append(START + " 3 0 -1.00 \n" + (START + 10) + " 3 0 99.95 \n");
        watch.start();
        TrendView chart = chartOnceListed();
        assertEquals("history", chart.source());
        assertArrayEquals(new double[] {START - 10, START + 10}, chart.samples().times());
        assertArrayEquals(new double[] {12.34, 99.95}, chart.samples().values());
        assertEquals(100.0, chart.limit());
        assertNull(chart.forecast());
        assertNull(chart.forecastAt());
    }

    private TrendView chartOnceListed() {
        await(() -> watch.trend(3).isPresent());
        return watch.trend(3).get();
    }

    /** Asks on another thread, while this one does the view's work. */
    private TrendView ask() {
        CompletableFuture<TrendView> chart = request(3);
        while (!chart.isDone()) {
            watch.round();
        }
        return chart.join();
    }

    @Test
    void aChartIsReadOnceACycle() throws IOException {
        swap(3, 1);
        prepare();
        forecast(2000, SOON, 75);
        cycles(200, 2000, 3, "50.00");
        TrendView chart = ask();
        assertEquals("forecast", chart.source());
        assertEquals(START + 2000, chart.forecastAt());
        assertEquals(9000.0, chart.secondsToExhaustion());
        assertEquals("hinge regression", chart.model());
        assertEquals(75.0, chart.notificationLevel());
        assertEquals(100.0, chart.limit());
        assertArrayEquals(new double[] {START + 1990, START + 2000}, chart.samples().times());
        assertArrayEquals(new double[] {40, 50}, chart.samples().values());
        assertArrayEquals(new double[] {START + 1990, START + 1990 + 3600}, chart.forecast().times());
        assertArrayEquals(new double[] {40, 99.99}, chart.forecast().values());
        assertSame(chart, ask());
        assertEquals(2, natives.headlines);
        forecast(2010, SOON, 75);
        cycle(2010, 3, "50.00");
        assertNotSame(chart, ask());
        assertEquals(4, natives.headlines);
    }

    @Test
    void anEndedAgentLeavesItsLastChart() throws IOException {
        swap(3, 1);
        prepare();
        forecast(2000, SOON, 75);
        cycles(200, 2000, 3, "50.00");
        TrendView chart = ask();
        cycle(2010, 3, "50.00");
        running = false;
        assertSame(chart, ask());
    }

    @Test
    void aBusyLockLeavesTheHistoryWithinTheBound() throws IOException {
        swap(3, 1);
        patience = Duration.ofMillis(50);
        make(machine, realTiming());
        AtomicBoolean isHeld = new AtomicBoolean();
        AtomicBoolean isWaiting = new AtomicBoolean();
        natives.whileWaiting = () -> {
            isWaiting.set(isHeld.get());
            await(() -> !isHeld.get());
        };
        natives.labelResult = LumetraSubagent.BUSY;
        watch.start();
        appendTwoHundredCycles();
        TrendView chart = chartOnceListed();
        assertEquals("history", chart.source());
        assertEquals(200, chart.samples().times().length);
        isHeld.set(true);
        appendTwoHundredCycles();
        await(isWaiting::get);
        assertEquals("history", watch.trend(3).get().source());
        isHeld.set(false);
    }

    @Test
    void aRoundThatFailsIsToldOnceAndTheNextGoesOn() throws IOException {
        swap(3, 1);
        ByteArrayOutputStream told = new ByteArrayOutputStream();
        PrintStream err = System.err;
        System.setErr(new PrintStream(told, true, StandardCharsets.UTF_8));
        try {
            make(machine, realTiming());
            natives.thrownByLabel = new UnsatisfiedLinkError("no viewer");
            watch.start();
            appendTwoHundredCycles();
            await(() -> !watch.snapshot().resources().isEmpty());
        } finally {
            System.setErr(err);
        }
        assertEquals("The agent's state cannot be shown for now: java.lang.UnsatisfiedLinkError: no viewer\n",
                told.toString(StandardCharsets.UTF_8));
        assertEquals(ResourceState.COLLECTING, only().state());
        assertEquals("history", watch.trend(3).get().source());
    }

    @Test
    void culpritsAndEventsBelongToTheirResource() throws IOException {
        declare("PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed", -1, "PercentSwapSpaceUsed", 1);
        record(1, 3, "PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed");
        prepare();
        cycle(0, 3, "5.00");
        assertEquals(new CulpritReport(3, "residentMegabytes", null, List.of()), watch.culprits(3).get());
        Files.writeString(home.resolve("PercentSwapSpaceUsed.cul"), "Top\n\t(java) \tPID 12 \tRSS 800 MB\n");
        assertEquals(List.of(), watch.culprits(3).get().processes());
        pass(1000);
        assertEquals(List.of(new Culprit("java", 12, 800)), watch.culprits(3).get().processes());
        event("PercentSwapSpaceUsed", "_Total");
        event("PercentSwapSpaceUsed", "x");
        assertEquals(1, watch.events(3, 10).get().size());
        assertEquals(2, watch.events(10).size());
    }

    @Test
    void anAgentWithoutAPauseIsShownOnceASecond() throws IOException {
        period = 100;
        swap(3, 1);
        prepare();
        forecast(1000, SOON, 75);
        List<Snapshot> seen = new ArrayList<>();
        for (int i = 0; i < 400; i++) {
            append(START + i / 20 + " 3 0 50.00 \n");
            pass(50);
            if (seen.isEmpty() || seen.get(seen.size() - 1) != watch.snapshot()) {
                seen.add(watch.snapshot());
            }
        }
        assertTrue(seen.size() >= 15 && seen.size() <= 22, seen.size() + " snapshots in 20 s");
        assertEquals(0.0, watch.snapshot().agent().periodSeconds());
        assertEquals(ResourceState.PENDING, only().state());
        assertTrue(natives.headlines <= 22, natives.headlines + " headlines");
    }

    private void twentySecondsWithoutAPause() throws IOException {
        for (int i = 0; i < 400; i++) {
            append(START + i / 20 + " 3 0 50.00 \n");
            pass(50);
        }
    }

    @Test
    void anAgentWithoutAPauseShowsItsForecastAlsoWhenItNeverGivesTheLockAgain() throws IOException {
        period = 100;
        swap(3, 1);
        prepare();
        forecast(1000, SOON, 75);
        twentySecondsWithoutAPause();
        natives.labelResult = LumetraSubagent.BUSY;
        assertEquals("forecast", ask().source());
    }

    @Test
    void aCurveThatIsMissingCostsAnAgentWithoutAPauseNoHeadline() throws IOException {
        period = 100;
        swap(3, 1);
        prepare();
        forecast(1000, SOON, 75).pairsResult = 3;
        twentySecondsWithoutAPause();
        assertEquals(ResourceState.PENDING, only().state());
        assertEquals("history", ask().source());
    }

    @Test
    void waitingForTheLockDoesNotKeepTheSamplesBack() throws IOException {
        period = 100;
        disks();
        StringBuilder values = new StringBuilder();
        for (int id = 1; id <= 10; id++) {
            disk(id, "/dev/vd" + id + " /mnt/" + id);
            natives.forecast("Space_dev_vd" + id + "__mnt_" + id, (int) START, SOON, 75);
            values.append(' ').append(id).append(" 0 50.00");
        }
        prepare();
        append((START + values.toString() + " \n").repeat(200));
        watch.round();
        natives.whileWaiting = () -> nanos += 1002 * MS;
        pass(100);
        assertEquals(1, natives.headlines);
        assertEquals(10, watch.snapshot().resources().size());
        for (int i = 0; i < 20; i++) {
            pass(50_000);
            append(START + i + values.toString() + " \n");
            watch.round();
            pass(100);
        }
        assertEquals(10, natives.asked.stream().distinct().count());
    }

    @Test
    void threeHundredResourcesWithTheLongestHistoryAreShownAndEachHeadlineReadOnceACycle() throws IOException {
        disks();
        for (int id = 1; id <= 300; id++) {
            disk(id, "/dev/vd" + id + " /mnt/" + id);
            listing += "/dev/vd" + id + " 4 1024 1024 50% /mnt/" + id + "\n";
            natives.forecast("Space_dev_vd" + id + "__mnt_" + id, (int) (START + 17280), SOON, 75);
        }
        StringBuilder values = new StringBuilder();
        for (int id = 1; id <= 300; id++) {
            values.append(' ').append(id).append(" 0 50.00");
        }
        StringBuilder old = new StringBuilder();
        for (int i = 1; i <= 1728; i++) {
            old.append(START - 20000 + 10L * i).append(values).append(" \n");
        }
        append(old.toString());
        prepare();
        StringBuilder run = new StringBuilder();
        for (int i = 1; i <= 1728; i++) {
            run.append(START + 10L * i).append(values).append(" \n");
        }
        append(run.toString());
        millis = (START + 17280) * 1000;
        nanos += 17280_000 * MS;
        watch.round();
        pass(100);
        assertEquals(300, natives.headlines);
        pass(10_000);
        append(START + 17290 + values.toString() + " \n");
        natives.files.values().forEach(f -> f.time = (int) (START + 17290));
        watch.round();
        pass(100);
        assertEquals(600, natives.headlines);
        assertEquals(300, watch.snapshot().resources().size());
        assertTrue(watch.snapshot().resources().stream().allMatch(r -> r.state() == ResourceState.PENDING
                && r.samples() == 1728 && r.forecastAt() == START + 17290));
    }

    @Test
    void afterTheEndTheLastThatWasSeenIsAnswered() throws IOException {
        swap(3, 1);
        make(machine, realTiming());
        watch.start();
        appendTwoHundredCycles();
        assertEquals("history", chartOnceListed().source());
        watch.close();
        assertEquals(200, watch.trend(3).get().samples().times().length);
        assertEquals(1, watch.snapshot().resources().size());
    }

    @Test
    void tooManyRequestsAreAnsweredAtOnce() throws IOException {
        disks();
        for (int id = 1; id <= 100; id++) {
            disk(id, "/dev/vd" + id + " /mnt/" + id);
        }
        prepare();
        Object[] values = new Object[200];
        for (int i = 0; i < 100; i++) {
            values[2 * i] = i + 1;
            values[2 * i + 1] = "5.00";
        }
        cycle(0, values);
        List<CompletableFuture<TrendView>> waiting = new ArrayList<>();
        for (int id = 1; id <= 64; id++) {
            waiting.add(request(id)); // nobody does the view's work: it waits
        }
        assertTrue(waiting.stream().noneMatch(CompletableFuture::isDone));
        assertEquals("history", watch.trend(100).get().source());
        watch.round();
        for (CompletableFuture<TrendView> answer : waiting) {
            assertEquals("history", answer.join().source());
        }
    }

    @Test
    void theAgentsOwnMeasuresAreInTheSnapshotButNotInTheJson() throws IOException {
        swap(3, 1);
        prepare();
        for (int i = 0; i < 3; i++) {
            append(START + 12 * i + " 3 0 50.00 \n");
            Files.setLastModifiedTime(
                    home.resolve("archive"), FileTime.fromMillis((START + 12 * i) * 1000 + 500));
            pass(1000);
        }
        pass(1000);
        Snapshot.Measures measures = watch.snapshot().measures();
        assertEquals(2, measures.cyclesMeasured());
        assertEquals(4.0, measures.cycleSeconds(), 1e-6);
        assertEquals(Files.size(home.resolve("archive")), measures.archiveBytes());
        assertEquals(Map.of(3, new TrendReader.Resource("Swap", "_Total")), measures.keys());
        assertFalse(new ObjectMapper().writeValueAsString(watch.snapshot()).contains("measures"));
        assertSame(events.counts(), watch.eventCounts());
    }
}
