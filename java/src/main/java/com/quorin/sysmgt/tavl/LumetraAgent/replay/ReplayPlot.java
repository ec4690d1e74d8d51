package com.quorin.sysmgt.tavl.LumetraAgent.replay;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.time.Instant;
import java.time.ZoneId;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/**
 * The gnuplot commands for the picture of a replayed resource: above its history with events and limits, below the
 * moments that were announced, against the time at which they were.
 */
final class ReplayPlot {

    /** Curves are thinned to fewer points than twice so many, evenly. */
    private static final int POINTS = 4000;

    /** A curve that halves itself when it grows too long. */
    private static final class Curve {

        private List<Replay.Sample> samples = new ArrayList<>();
        private int stride = 1;
        private int passed;

        void add(Replay.Sample sample) {
            if (passed++ % stride == 0) {
                samples.add(sample);
            }
            if (samples.size() >= 2 * POINTS) {
                List<Replay.Sample> half = new ArrayList<>();
                for (int i = 0; i < samples.size(); i += 2) {
                    half.add(samples.get(i));
                }
                samples = half;
                stride *= 2;
            }
        }
    }

    private final Map<Integer, Curve> curves = new HashMap<>();

    void take(List<Replay.Sample> samples) {
        samples.forEach(sample -> curves.computeIfAbsent(sample.id(), id -> new Curve()).add(sample));
    }

    /** The commands for one resource, which draw to standard output. */
    String script(ReplayResult result, Replay.Tally resource, ZoneId zone) {
        List<Replay.Sample> samples = curves.getOrDefault(resource.id(), new Curve()).samples;
        long shift = zone.getRules().getOffset(Instant.ofEpochSecond(result.progress().to())).getTotalSeconds();
        StringBuilder out = new StringBuilder("set encoding utf8\n"
                + "if (strstrt(GPVAL_TERMINALS, 'pngcairo')) { set terminal pngcairo noenhanced size 1200,800"
                + " } else { set terminal png noenhanced size 1200,800 }\n");
        out.append("$history << END\n");
        samples.forEach(s -> line(out, "%d %.2f", s.time() + shift, s.value()));
        out.append("END\n$announced << END\n");
        samples.stream().filter(s -> s.announced() != 0)
                .forEach(s -> line(out, "%d %d", s.time() + shift, s.announced() + shift));
        out.append("END\n");
        List<Long> events = result.timeline().stream()
                .filter(h -> h.id() == resource.id() && h.what() == Replay.What.EVENT)
                .map(Replay.Happening::time).toList();
        out.append("$events << END\n");
        events.forEach(time -> line(out, "%d 100", time + shift));
        out.append("END\n$reached << END\n");
        resource.reached().forEach(time -> line(out, "%d %d", time + shift, time + shift));
        out.append("END\n");
        String title =
                Words.printable(Words.ofBytes(resource.resource()) + " " + Words.ofBytes(resource.instance())).strip();
        line(out, "set multiplot layout 2,1 title '%s'", title.replace("'", "''"));
        line(out, "set xdata time%nset timefmt '%%s'%nset format x '%%d.%%m.%%n%%H:%%M'%n"
                + "set grid%nset key tmargin horizontal");
        line(out, "set xrange ['%d':'%d']", result.progress().from() + shift, result.progress().to() + shift);
        resource.reached().forEach(time -> line(out, "set arrow from '%1$d', graph 0 to '%1$d', graph 1 nohead lc rgb"
                + " '#c01020' dt 2", time + shift));
        line(out, "set ylabel 'per cent'%nset yrange [0:105]");
        out.append("plot $history using 1:2 with lines lc rgb '#1f5fa8' title 'history'");
        if (!events.isEmpty()) {
            out.append(", $events using 1:2 with points pt 7 ps 1.2 lc rgb '#c01020' title 'event'");
        }
        out.append('\n');
        line(out, "set ylabel 'announced moment'%nset ydata time%nset format y '%%d.%%m. %%H:%%M'%nset yrange [*:*]");
        out.append(samples.stream().anyMatch(s -> s.announced() != 0)
                ? "plot $announced using 1:2 with points pt 7 ps 0.3 lc rgb '#8a5a00' title 'announced exhaustion',"
                        + " $reached using 1:2 with points pt 2 ps 1.5 lc rgb '#c01020' title 'limit reached'\n"
                : "set label 'nothing was announced' at graph 0.5, graph 0.5 center\nunset ytics\n"
                        + "plot [:] [0:1] -1 notitle\n");
        return out.append("unset multiplot\n").toString();
    }

    private static void line(StringBuilder out, String form, Object... values) {
        out.append(String.format(Locale.ROOT, form, values)).append('\n');
    }
}
