package com.quorin.sysmgt.tavl.LumetraAgent.client;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import java.time.ZoneId;
import java.time.ZoneOffset;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;

class PlotScriptTest {

    private static final TrendView TREND = new FakeView().trend;

    private static String script(String instance, TrendView trend, String format) {
        return PlotScript.of(FakeView.resource(7, "Disk", instance, 1.0), trend, format, ZoneOffset.UTC);
    }

    @Test
    void aForeignNameStaysWithinItsQuotes() {
        String script = script("a'; system('touch x'); `touch y` \\' $(z) \"\n\u001b", TREND, "png");
        String title = "'Disk a''; system(''touch x''); `touch y` \\'' $(z) \"\\n\\x1b, Linear'";
        assertTrue(script.contains("set title " + title + "\n"), script);
        assertEquals(1, script.lines().filter(line -> line.contains("touch")).count());
    }

    @Test
    void curvesLevelsAndTheNewestSampleAreInIt() {
        String script = script("", TREND, "svg");
        for (String part : List.of("$samples << END\n900.000 40.000000\n1000.000 41.000000\nEND\n",
                "$forecast << END\n1000.000 41.000000\n4600.000 100.000000\nEND\n", "title 'samples'",
                "dt 2 lc rgb '#c05000' title 'forecast'", "title 'limit 100.00 %'",
                "title 'notification level 50.00 %'", "set label 'now' at '1000.000'",
                "terminal svg noenhanced", "set xrange ['900.000':'4600.000']")) {
            assertTrue(script.contains(part), part + " in " + script);
        }
        assertFalse(script.contains("set output"));
    }

    @Test
    void beforeAForecastThereAreSamplesOnly() {
        TrendView history = new TrendView(7, "history", null, null, null, null, null,
                new TrendView.Curve(new double[] {5, Double.NaN}, new double[] {1, 2}), null);
        String script = script("", history, "png");
        assertTrue(script.contains("$samples << END\n5.000 1.000000\nEND\n"), script);
        for (String part : List.of("forecast", "level", "NaN")) {
            assertFalse(script.contains(part), part + " in " + script);
        }
        assertTrue(script.contains("pngcairo noenhanced"));
    }

    @Test
    void aReportHasEachChartWithoutTheMarksOfTheOneBefore() {
        Map<Snapshot.Resource, TrendView> charts = new LinkedHashMap<>();
        for (int id : new int[] {1, 2, 3}) {
            charts.put(FakeView.resource(id, "Disk", "/" + id, 1.0), TREND);
        }
        String pages = PlotScript.report(charts, "pdf", ZoneOffset.UTC);
        assertTrue(pages.startsWith("set encoding utf8\nset terminal pdfcairo "), pages);
        assertFalse(pages.contains("multiplot"));
        assertEquals(List.of("Disk /1", "Disk /2", "Disk /3"), pages.lines().filter(l -> l.startsWith("set title"))
                .map(l -> l.substring(11, 18)).toList());
        assertEquals(3, pages.lines().filter("reset"::equals).count());
        String picture = PlotScript.report(charts, "png", ZoneOffset.UTC);
        assertTrue(picture.contains("size 2000,1120"), picture);
        assertTrue(picture.contains("set multiplot layout 2,2\nreset\n"), picture);
    }

    @Test
    void timesAreThoseOfTheReadersClock() {
        String script = PlotScript.of(FakeView.resource(7, "Disk", "", 1.0), TREND, "png",
                ZoneId.of("Asia/Kolkata"));
        assertTrue(script.contains("\n20700.000 40.000000\n"), script);
        assertTrue(script.contains("'local time (UTC+05:30)'"), script);
    }

    @Test
    void aFileNameIsHarmless() {
        assertEquals("7-a_.._.._etc_passwd__x___.png",
                PlotCommand.fileName(FakeView.resource(7, "a", "../../etc/passwd\n\u0000x é/", 1.0), "png")
                        .replaceAll("__x.*\\.", "__x___."));
        String name = PlotCommand.fileName(FakeView.resource(7, "a", FakeView.HOSTILE, 1.0), "svg");
        assertTrue(name.matches("7-[A-Za-z0-9._-]{1,120}\\.svg"), name);
    }
}
