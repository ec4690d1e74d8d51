package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.HostFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.Mutations;
import com.quorin.sysmgt.tavl.LumetraAgent.score.EndedEpisode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Outcome;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;
import java.util.Optional;
import java.util.function.Function;
import java.util.function.Supplier;
import org.junit.jupiter.api.Test;

class FeedReaderTest {

    private final ByteBuffer bytes = ByteBuffer.allocate(4096).order(ByteOrder.LITTLE_ENDIAN);

    private FeedReaderTest number(int... values) {
        Arrays.stream(values).forEach(bytes::putInt);
        return this;
    }

    private FeedReaderTest real(double... values) {
        Arrays.stream(values).forEach(bytes::putDouble);
        return this;
    }

    private FeedReaderTest longNumber(long value) {
        bytes.putLong(value);
        return this;
    }

    private FeedReaderTest flag(int value) {
        bytes.put((byte) value);
        return this;
    }

    private FeedReaderTest text(String... values) {
        for (String value : values) {
            number(value.length());
            bytes.put(value.getBytes(StandardCharsets.ISO_8859_1));
        }
        return this;
    }

    private byte[] made() {
        return Arrays.copyOf(bytes.array(), bytes.position());
    }

    private FeedReaderTest head(int kind, long cycles) {
        return number(HostFeed.VERSION).longNumber(17).number(kind).longNumber(cycles);
    }

    /** A run with one thing left out and two resources, the first without a forecast. */
    private byte[] running() {
        head(1, 7).longNumber(4_102_444_800L).longNumber(-3600).real(1.5, 2.5, 0.25, 40).longNumber(123_456_789_012L);
        longNumber(4_300_000_000L).number(2).text("../data/", "../data/archive", "pad", "resources.txt",
                "AutoConfig.ini");
        number(10_000, 1, 48, 50, 200).flag(1).number(1).text("a line", "a reason").number(3)
                .text("fstype a");
        number(2);
        number(3).text("PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed", "Swap").number(-1);
        real(12.5).flag(1).real(2048).flag(0).real(0).number(3).real(0, 100).number(2);
        real(4.8).number(1728, 20).longNumber(0).text("").real(-1).flag(0).real(0).number(0).longNumber(0).number(0);
        number(4).text("LogicalDisk", "/dev/\u00c3\u00a9\u00ff /m", "PercentFreeSpaceUsed", "Space").number(9);
        real(99).flag(0).real(1).flag(1).real(512).number(1).real(-1, 100).number(0);
        real(0.5).number(180, 179).longNumber(4_102_444_790L).text("mean").real(2.25).flag(1).real(99.5).number(5)
                .longNumber(1234).number(2);
        number(1).longNumber(8).number(4).text("Space", "/dev/x /m").number(0).longNumber(10).longNumber(20)
                .longNumber(30);
        number(2).longNumber(40).longNumber(50).real(60.5, 70.5).number(5).real(1, 2, 3, 4, Double.NaN);
        return made();
    }

    @Test
    void aRunIsReadWhole() {
        RunResource swap = new RunResource(
                new RunResource.Identity(
                        3, "PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed", "Swap", -1),
                new RunResource.Reading(12.5, true, 2048, false, 0),
                new RunResource.Analysis(
                        3, new RunResource.Limits(0, 100, RunResource.Reached.UPPER), 4.8, 1728, 20),
                null, new RunResource.Notification(false, 0, 0, 0), RunResource.WatchReason.DECLARED);
        RunResource disk = new RunResource(
                new RunResource.Identity(
                        4, "LogicalDisk", "/dev/\u00c3\u00a9\u00ff /m", "PercentFreeSpaceUsed", "Space", 9),
                new RunResource.Reading(99, false, 1, true, 512),
                new RunResource.Analysis(
                        1, new RunResource.Limits(-1, 100, RunResource.Reached.NONE), 0.5, 180, 179),
                new RunResource.Forecast(4_102_444_790L, "mean", 2.25),
                new RunResource.Notification(true, 99.5, 5, 1234), RunResource.WatchReason.NAMED);
        assertEquals(new Publication(17, 7, Optional.of(new RunState(
                new RunState.Cycle(4_102_444_800L, -3600, 1.5, 2.5, 0.25, 40),
                new RunState.Archive("../data/archive", 123_456_789_012L,
                        new RunState.Resumed(4_300_000_000L, 2)),
                new RunState.Settings("../data/", 10_000, 1, 48, 200), true,
                List.of(new RunState.LeftOut("a line", "a reason", LeftOutKind.TYPE, "fstype a")), List.of(swap, disk),
                List.of(new EndedEpisode(8, 4, "Space", "/dev/x /m", new Episode(0, 10, 20, 30, Outcome.FREED, 40, 50,
                        60.5, 70.5, List.of(1.0, 2.0, 3.0, 4.0, Double.NaN))))))),
                new FeedReader(running()).publication());
    }

    @Test
    void whatIsTheSameAsBeforeIsNotMadeAgainAndWhatIsNotIsReadAnew() {
        byte[] array = running();
        FeedReader before = new FeedReader(array);
        List<RunResource> first = before.publication().state().get().resources();
        Publication again = new FeedReader(array.clone(), before.identities()).publication();
        assertEquals(new FeedReader(array).publication(), again);
        List<RunResource> resources = again.state().get().resources();
        assertSame(first.get(0).identity(), resources.get(0).identity());
        assertSame(first.get(1).identity(), resources.get(1).identity());

        int begin = before.identities().begin(1);
        int end = before.identities().end(1);
        for (int at = begin; at < end; at++) {
            byte[] other = array.clone();
            other[at] ^= 1;
            KnownIdentities known = new KnownIdentities(other);
            known.add(first.get(0).identity(), before.identities().begin(0), before.identities().end(0));
            known.add(first.get(0).identity(), begin, end);
            assertEquals(again, new FeedReader(array, known).publication(), "byte " + (at - begin));
        }
        KnownIdentities behind = new KnownIdentities(new byte[2 * array.length]);
        behind.add(first.get(0).identity(), 0, 2 * array.length);
        assertEquals(again, new FeedReader(array, behind).publication());
    }

    @Test
    void theEndHasItsCyclesAlone() {
        assertEquals(new Publication(17, 9, Optional.empty()), new FeedReader(head(2, 9).made()).publication());
    }

    private byte[] withForecast() {
        number(HostFeed.VERSION).number(2).real(1, 40, 2, 41);
        longNumber(4_102_444_800L).text("mean").real(3).real(70.5).number(1).real(5, 99);
        number(1).longNumber(77).longNumber(88);
        return made();
    }

    @Test
    void curvesAreReadWithTheirForecast() {
        Curves curves = FeedReader.curves(withForecast());
        assertArrayEquals(new double[] {1, 2}, curves.samples().times());
        assertArrayEquals(new double[] {40, 41}, curves.samples().values());
        Curves.Forecast forecast = curves.forecast().get();
        assertEquals(new RunResource.Forecast(4_102_444_800L, "mean", 3), forecast.outcome());
        assertEquals(70.5, forecast.level());
        assertArrayEquals(new double[] {5}, forecast.points().times());
        assertArrayEquals(new double[] {99}, forecast.points().values());
    }

    @Test
    void beforeTheFirstForecastThereAreSamplesAlone() {
        number(HostFeed.VERSION).number(0).longNumber(0).text("").real(-1).real(0).number(0).number(0);
        assertTrue(FeedReader.curves(made()).forecast().isEmpty());
    }

    private static String failure(byte[] array) {
        String message =
                assertThrows(IllegalStateException.class, () -> new FeedReader(array).publication()).getMessage();
        assertTrue(message.startsWith("the library's publication is not understood: at byte "), message);
        return message;
    }

    @Test
    void bytesThatEndEarlyAreRefusedWhereverTheyEnd() {
        byte[] whole = running();
        for (int length = 0; length < whole.length; length++) {
            failure(Arrays.copyOf(whole, length));
        }
        assertEquals("the library's publication is not understood: at byte 4 it has 3 bytes in the place of "
                + "the serial in 8 bytes", failure(Arrays.copyOf(whole, 7)));
        bytes.clear();
        byte[] curves = withForecast();
        for (int length = 0; length < curves.length; length++) {
            byte[] part = Arrays.copyOf(curves, length);
            assertThrows(IllegalStateException.class, () -> FeedReader.curves(part));
        }
    }

    @Test
    void bytesBehindTheEndAreRefused() {
        byte[] whole = running();
        assertTrue(failure(Arrays.copyOf(whole, whole.length + 1)).endsWith(
                "at byte " + whole.length + " it has 1 more bytes in the place of the end"));
    }

    @Test
    void whatCannotBeIsNamedWithItsPlace() {
        assertEquals("the library's publication is not understood: at byte 0 it has version 99 in the place of "
                + "version " + HostFeed.VERSION, failure(number(99).made()));
        bytes.clear();
        assertTrue(failure(head(3, 0).made()).endsWith(
                "at byte 12 it has 3 in the place of the kind of publication, 1 to 2"));
        byte[] whole = running();
        for (int i = 0; i < whole.length - Integer.BYTES; i++) {
            byte[] foreign = whole.clone();
            ByteBuffer.wrap(foreign).putInt(i, -2);
            try {
                new FeedReader(foreign).publication(); // another number is none that could be told
            } catch (IllegalStateException e) {
                assertTrue(e.getMessage().contains(" in the place of "), e.getMessage());
            }
        }
    }

    private byte[] afresh(Supplier<byte[]> maker) {
        bytes.clear();
        return maker.get();
    }

    @Test
    void whateverTheBytesTheyAreReadOrRefusedWithTheirPlace() {
        Mutations mutations = new Mutations(20261122, List.of(afresh(this::running), afresh(this::withForecast),
                afresh(() -> head(2, 9).made())), List.of());
        List<Function<byte[], Object>> readers = List.of(a -> new FeedReader(a).publication(), FeedReader::curves,
                FeedReader::counters, FeedReader::reading, FeedReader::serial);
        int[] read = new int[readers.size()];
        for (int i = Mutations.often(3000); i > 0; i--) {
            byte[] foreign = mutations.next();
            for (int reader = 0; reader < read.length; reader++) {
                try {
                    readers.get(reader).apply(foreign);
                    read[reader]++;
                } catch (IllegalStateException e) {
                    assertTrue(e.getMessage().startsWith(
                            "the library's publication is not understood: at byte "), e.getMessage());
                }
            }
        }
        assertTrue(read[0] > 100 && read[1] > 100, "so little was right: " + Arrays.toString(read));
    }

    @Test
    void howFarTheArchiveIsReadIsRead() {
        number(HostFeed.VERSION).longNumber(3_000_000_000L).longNumber(5_000_000_000L);
        assertEquals(new ArchiveReading(3_000_000_000L, 5_000_000_000L), FeedReader.reading(made()));
    }

    @Test
    void noLengthTakesMoreMemoryThanTheBytesCanFill() {
        bytes.clear();
        number(HostFeed.VERSION).number(Integer.MAX_VALUE);
        String message = assertThrows(
                IllegalStateException.class, () -> FeedReader.curves(made())).getMessage();
        assertTrue(message.endsWith("at byte 4 it has 2147483647 with 0 bytes left in the place of the length of "
                + "the samples"), message);
    }
}
