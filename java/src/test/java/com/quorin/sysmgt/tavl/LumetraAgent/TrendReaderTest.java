package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendUnavailable.Reason;
import java.util.Collections;
import java.util.List;
import java.util.Map;
import java.util.OptionalDouble;
import java.util.OptionalInt;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

class TrendReaderTest {

    private static final TrendReader.Resource SWAP = new TrendReader.Resource("Swap", "_Total");

    private final FakeNatives natives = new FakeNatives();
    private final TrendReader reader = new TrendReader(natives);

    @AfterEach
    void theLockIsFree() {
        assertFalse(natives.lock.isLocked());
    }

    private FakeNatives.Files swap(String text, float level) {
        return natives.forecast("Swap_Total", 1700000000, text, level);
    }

    private FakeNatives.Files curves(List<String> samples, List<String> forecast) {
        FakeNatives.Files f =
                swap("Algorithm: hinge regression.      12.35 hours to exhaustion.", 87.55f);
        f.samples = samples;
        f.forecast = forecast;
        return f;
    }

    private static void refused(Reason reason, Executable call) {
        assertEquals(reason, assertThrows(TrendUnavailable.class, call).reason());
    }

    @Test
    void resourcesComeInPairsTemplatesIncluded() throws TrendUnavailable {
        natives.descriptors.addAll(List.of("Swap", "_Total", "Space", "*", "Space", "/dev/vda /"));
        assertEquals(List.of(SWAP, new TrendReader.Resource("Space", "*"),
                new TrendReader.Resource("Space", "/dev/vda /")), reader.resources());
        assertEquals(0, natives.unlocks);
    }

    @Test
    void theListIsRefusedWithoutAnAgentAndWhenItIsOdd() {
        natives.descriptors.add("Swap");
        refused(Reason.MALFORMED, reader::resources);
        natives.descriptors.clear();
        natives.descriptorsResult = LumetraSubagent.NO_RESOURCES;
        refused(Reason.NO_RESOURCES, reader::resources);
    }

    @Test
    void aHeadlineWithAnExhaustion() throws TrendUnavailable {
        String text = "Algorithm: hinge regression.      12.35 hours to exhaustion.";
        swap(text, 87.55f);
        assertEquals(new TrendReader.Headline(1700000000, "hinge regression", OptionalDouble.of(12.35),
                OptionalDouble.of(87.55), OptionalInt.of(100), text), reader.headline(SWAP));
    }

    @Test
    void aHeadlineWithoutAnExhaustion() throws TrendUnavailable {
        String text = "Algorithm: mean.      no exhaustion within horizon.";
        swap(text, -1).limit = -1;
        assertEquals(new TrendReader.Headline(1700000000, "mean", OptionalDouble.empty(),
                OptionalDouble.empty(), OptionalInt.empty(), text), reader.headline(SWAP));
    }

    @Test
    void aHeadlineThatIsNotThere() throws TrendUnavailable {
        natives.forecast("Swap_Total", -1, "Unknown hours to exhaustion.", -2);
        assertEquals(new TrendReader.Headline(-1, "", OptionalDouble.empty(), OptionalDouble.empty(),
                OptionalInt.of(100), "Unknown hours to exhaustion."), reader.headline(SWAP));
    }

    @Test
    void aLevelThatCannotBeReadIsNone() throws TrendUnavailable {
        swap("Algorithm: mean.      1.00 hours to exhaustion.", -3);
        assertEquals(OptionalDouble.empty(), reader.headline(SWAP).notificationLevel());
    }

    @Test
    void aHeadlineOfOtherWordsIsMalformed() {
        for (String text : List.of("", "Algorithm: mean.      soon.",
                "Algorithm: mean.      x hours to exhaustion.",
                "Algorithm: mean.      1e5 hours to exhaustion.")) {
            swap(text, 1);
            refused(Reason.MALFORMED, () -> reader.headline(SWAP));
        }
    }

    @Test
    void everyResultCodeHasItsReasonAndTheLockIsFreed() {
        Map<Integer, Reason> reasons = Map.of(1, Reason.NO_RESOURCES, 2, Reason.STOPPING, 3, Reason.NO_FILE,
                5, Reason.BUSY, 4, Reason.MALFORMED, -7, Reason.MALFORMED);
        natives.holdsAfterBusy = true;
        swap("Algorithm: mean.      no exhaustion within horizon.", -1);
        reasons.forEach((code, reason) -> {
            natives.labelResult = code;
            refused(reason, () -> reader.headline(SWAP));
            refused(reason, () -> reader.read(SWAP));
            assertFalse(natives.lock.isLocked());
        });
        assertEquals(2 * reasons.size(), natives.unlocks);
    }

    @Test
    void aMissingFileFreesTheLockThatIsHeld() {
        refused(Reason.NO_FILE, () -> reader.headline(SWAP));
        swap("Algorithm: mean.      no exhaustion within horizon.", -1).limitResult = 3;
        refused(Reason.NO_FILE, () -> reader.headline(SWAP));
        assertEquals(2, natives.unlocks);
    }

    @Test
    void whateverIsThrownFreesTheLockAndReachesTheCaller() {
        for (Throwable thrown : List.of(new IllegalStateException("no"), new OutOfMemoryError("no"))) {
            natives.thrownByLabel = thrown;
            assertSame(thrown, assertThrows(Throwable.class, () -> reader.headline(SWAP)));
            assertSame(thrown, assertThrows(Throwable.class, () -> reader.read(SWAP)));
            natives.thrownByLabel = null;
            natives.thrownByPairs = thrown;
            curves(List.of(), List.of());
            assertSame(thrown, assertThrows(Throwable.class, () -> reader.read(SWAP)));
            natives.thrownByPairs = null;
            assertFalse(natives.lock.isLocked());
        }
    }

    @Test
    void aTrendHasItsCurvesAndTheCalendar() throws TrendUnavailable {
        curves(List.of("0.000000", "1.500000", "10.000000", "2.500000"), List.of("3600.000000", "99.000000"));
        TrendReader.Trend trend = reader.read(SWAP);
        assertArrayEquals(new float[] {0, 10}, trend.samples().seconds());
        assertArrayEquals(new float[] {1.5f, 2.5f}, trend.samples().values());
        assertArrayEquals(new float[] {99}, trend.forecast().values());
        assertEquals(1700000000.0, trend.epochSeconds(10));
        assertEquals(1700003590.0, trend.epochSeconds(3600));
        assertEquals(1, natives.headlines);
        assertEquals(1, natives.unlocks);
    }

    @Test
    void aResultOfThreeWithThreeTextsIsNoMissingFile() {
        curves(List.of("0", "1", "2"), List.of());
        refused(Reason.MALFORMED, () -> reader.read(SWAP));
        FakeNatives.Files f = curves(List.of(), List.of());
        f.pairsResult = 3;
        refused(Reason.NO_FILE, () -> reader.read(SWAP));
        f.pairsResult = 1;
        refused(Reason.NO_RESOURCES, () -> reader.read(SWAP));
        f.samples = List.of("0", "1");
        refused(Reason.MALFORMED, () -> reader.read(SWAP));
        f.pairsResult = 4;
        refused(Reason.MALFORMED, () -> reader.read(SWAP));
    }

    @Test
    void emptyCurvesAreCurves() throws TrendUnavailable {
        curves(List.of(), List.of());
        TrendReader.Trend trend = reader.read(SWAP);
        assertEquals(0, trend.samples().seconds().length);
        assertEquals(1700000005.0, trend.epochSeconds(5));
    }

    @Test
    void tokensThatAreNoNumbersAreMalformed() {
        for (String token : List.of("x", "1f", "0x1p3", "NaN", "Infinity", "1d", "", "--1")) {
            curves(List.of("0", token), List.of());
            refused(Reason.MALFORMED, () -> reader.read(SWAP));
        }
    }

    @Test
    void whatTheModelsCannotSayIsRead() throws TrendUnavailable {
        curves(List.of("0", "nan", "1", "-nan", "2", "inf", "3", "-inf", "4", "-1.5e+3"), List.of());
        assertArrayEquals(new float[] {Float.NaN, Float.NaN, Float.POSITIVE_INFINITY,
            Float.NEGATIVE_INFINITY, -1500}, reader.read(SWAP).samples().values());
    }

    @Test
    void manyPointsAreRead() throws TrendUnavailable {
        curves(Collections.nCopies(20_000, "1.000000"), List.of());
        assertEquals(10_000, reader.read(SWAP).samples().values().length);
    }

    @Test
    void theInstanceIsSpelledAsInFileNames() {
        refused(Reason.NO_FILE, () -> reader.headline(
                new TrendReader.Resource("a/b:c", "/dev/x: *?\"><|\u00e9\n")));
        assertEquals(List.of("a/b:c_dev_x________\u00e9\n"), natives.asked);
    }

    @Test
    void theReceiverHasTheMethodsThatTheLibraryLooksUp() throws NoSuchMethodException {
        Class<?> type = TrendReader.Values.class;
        assertEquals(void.class, type.getMethod("AppendCompUnicode", String.class).getReturnType());
        assertEquals(void.class, type.getMethod("AppendInt", int.class).getReturnType());
        assertEquals(void.class, type.getMethod("AppendFloat", float.class).getReturnType());
    }

    @Test
    void theMessageSaysWhatAndWhyWithoutControlCharacters() {
        TrendUnavailable e = assertThrows(TrendUnavailable.class,
                () -> reader.headline(new TrendReader.Resource("a\u001b[2J", "b\n")));
        assertEquals(
                "Cannot read the forecast of a\\x1b[2J b\\n: there is no forecast of it", e.getMessage());
    }
}
