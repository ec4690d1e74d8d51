package com.quorin.sysmgt.tavl.LumetraAgent.client;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.time.Instant;
import java.time.ZoneId;
import java.util.Arrays;
import java.util.Locale;
import java.util.Map;
import java.util.stream.DoubleStream;

/**
 * The gnuplot commands that draw a chart, data included. Of the agent's texts only the title gets in, between
 * single quotes, where gnuplot expands nothing; the picture goes to standard output, so no file is named.
 */
final class PlotScript {

    private static final int LONGEST_TITLE = 110;
    private static final double DAY = 24 * 3600.0;
    private static final double HEADROOM = 1.05;

    private final StringBuilder script = new StringBuilder();
    private final TrendView trend;
    private final long zone;

    private PlotScript(TrendView trend, ZoneId zone) {
        this.trend = trend;
        // gnuplot knows no time zones: the times are moved, all alike, to what the clock on the wall shows
        Instant now = Instant.ofEpochSecond((long) newest(trend));
        this.zone = zone.getRules().getOffset(now).getTotalSeconds();
    }

    /**
     * The commands that draw a chart, for gnuplot's standard input.
     *
     * @param trend  with one sample at least
     * @param format "png" or "svg"
     * @param zone   the reader's
     */
    static String of(Snapshot.Resource resource, TrendView trend, String format, ZoneId zone) {
        return terminal(format, 1000, 560) + chart(resource, trend, zone);
    }

    /**
     * The commands that draw charts into one picture: in pairs, or of a PDF each on a page of its own.
     *
     * @param charts with one sample at least, each
     * @param format "png" or "pdf"
     * @param zone   the reader's
     */
    static String report(Map<Snapshot.Resource, TrendView> charts, String format, ZoneId zone) {
        int rows = (charts.size() + 1) / 2;
        StringBuilder report = new StringBuilder(format.equals("pdf")
                ? "set encoding utf8\nset terminal pdfcairo noenhanced size 29.7cm,21cm\n"
                : terminal(format, 2 * 1000, rows * 560) + "set multiplot layout " + rows + ",2\n");
        charts.forEach((resource, trend) -> report.append("reset\n").append(chart(resource, trend, zone)));
        return report.toString();
    }

    private static String chart(Snapshot.Resource resource, TrendView trend, ZoneId zone) {
        PlotScript plot = new PlotScript(trend, zone);
        plot.data();
        plot.axes(resource);
        plot.curves();
        return plot.script.toString();
    }

    private void line(String form, Object... values) {
        script.append(String.format(Locale.ROOT, form, values)).append('\n');
    }

    private static String terminal(String format, int width, int height) {
        String size = " noenhanced size " + width + "," + height;
        return "set encoding utf8\n" + (format.equals("svg")
                ? "set terminal svg" + size + " dynamic background rgb 'white'\n"
                : "if (strstrt(GPVAL_TERMINALS, 'pngcairo')) { set terminal pngcairo" + size
                        + " } else { set terminal png" + size + " }\n");
    }

    private void data() {
        block("$samples", trend.samples());
        if (trend.forecast() != null) {
            block("$forecast", trend.forecast());
        }
    }

    private void block(String name, TrendView.Curve curve) {
        line("%s << END", name);
        for (int i = 0; i < curve.times().length; i++) {
            if (Double.isFinite(curve.times()[i]) && Double.isFinite(curve.values()[i])) {
                line("%.3f %.6f", curve.times()[i] + zone, curve.values()[i]);
            }
        }
        line("END");
    }

    private void axes(Snapshot.Resource resource) {
        double from = times().min().orElse(0);
        double to = Math.max(times().max().orElse(0), from + 1);
        double least = values().min().orElse(0);
        double most = values().max().orElse(0);
        line("set title %s", quoted(title(resource)));
        line("set grid");
        line("set key tmargin center horizontal");
        line("set ylabel 'per cent'");
        line("set xlabel %s", quoted("local time (UTC" + offset() + ")"));
        line("set xdata time");
        line("set timefmt '%%s'");
        String clock = to - from > DAY / 48 ? "'%H:%M'" : "'%H:%M:%S'";
        line("set format x %s", to - from > DAY ? "\"%a %d.%m.\\n%H:%M\"" : clock);
        line("set xrange ['%.3f':'%.3f']", from + zone, to + zone);
        line("set yrange [%.6f:%.6f]", Math.min(0, least * HEADROOM), Math.max(105, most * HEADROOM));
        double now = newest(trend);
        line("set arrow from '%1$.3f', graph 0 to '%1$.3f', graph 1 nohead lc rgb '#808080'", now + zone);
        line("set label 'now' at '%.3f', graph 0.5 %s tc rgb '#606060'", now + zone,
                now < (from + to) / 2 ? "left offset 0.7,0" : "right offset -0.7,0");
    }

    private String title(Snapshot.Resource resource) {
        Snapshot.Identity who = resource.identity();
        String name = Words.printable(who.resource() + " " + who.instance()).strip();
        String model = trend.model() == null ? "" : ", " + Words.printable(trend.model());
        return StatusTable.shorten(name, LONGEST_TITLE) + StatusTable.shorten(model, LONGEST_TITLE / 2);
    }

    private void curves() {
        StringBuilder plot = new StringBuilder(
                "plot $samples using 1:2 with lines lw 2 lc rgb '#1f5fa8' title 'samples'");
        if (trend.forecast() != null && trend.forecast().times().length > 0) {
            plot.append(", $forecast using 1:2 with lines lw 2 dt 2 lc rgb '#c05000' title 'forecast'");
        }
        level(plot, trend.limit(), "limit", "#b00020");
        level(plot, trend.notificationLevel(), "notification level", "#7a6a00");
        line("%s", plot);
    }

    private static void level(StringBuilder plot, Double value, String name, String colour) {
        if (value != null && Double.isFinite(value)) {
            plot.append(String.format(Locale.ROOT, ", %.6f with lines lc rgb '%s' title '%s %.2f %%'", value,
                    colour, name, value));
        }
    }

    private DoubleStream times() {
        return finite(trend.samples().times(), trend.forecast() == null ? null : trend.forecast().times());
    }

    private DoubleStream values() {
        return finite(trend.samples().values(), trend.forecast() == null ? null : trend.forecast().values());
    }

    private static DoubleStream finite(double[] some, double[] more) {
        DoubleStream all = more == null ? Arrays.stream(some)
                : DoubleStream.concat(Arrays.stream(some), Arrays.stream(more));
        return all.filter(Double::isFinite);
    }

    private static double newest(TrendView trend) {
        return Arrays.stream(trend.samples().times()).filter(Double::isFinite).max().orElse(0);
    }

    private String offset() {
        long minutes = Math.abs(zone) / 60;
        return String.format(Locale.ROOT, "%s%02d:%02d", zone < 0 ? "-" : "+", minutes / 60, minutes % 60);
    }

    /** A text as gnuplot takes it for nothing but a text: between single quotes, those in it doubled. */
    static String quoted(String text) {
        return "'" + Words.printable(text).replace("'", "''") + "'";
    }
}
