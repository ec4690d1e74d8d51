package com.quorin.sysmgt.tavl.LumetraAgent.check;

import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.OptionalLong;

/** Checks whether the analysis windows hold what a forecast needs, by the agent's own arithmetic. */
final class WindowCheck {

    private static final double MILLIS_PER_HOUR = 3600.0 * 1000.0;
    private static final double MOST_SAMPLES = 4294967295.0;

    private final CheckedFile configuration;
    private final ConfigurationItems items;
    private final CheckedFile declarations;
    private final LibraryCheck.Declarations read;
    private final double automatic;
    private int period;
    private DeclaredInput automaticFor;

    WindowCheck(CheckedFile configuration, ConfigurationItems items, CheckedFile declarations,
            LibraryCheck.Declarations read) {
        this.configuration = configuration;
        this.items = items;
        this.declarations = declarations;
        this.read = read;
        automatic = items.number(8) / 10.0;
        period = items.number(6);
    }

    /**
     * Checks the windows of the inputs, each resource once. Where the period or the hours are no use, there is
     * nothing to say about windows.
     */
    void check(List<DeclaredInput> resources) {
        if (items.isRead(8) && items.number(8) >= 0 && (period > 0 || period == -1)) {
            checkAll(resources);
            if (automaticFor != null) {
                tellAutomatic();
            }
        }
    }

    private void checkAll(List<DeclaredInput> resources) {
        List<DeclaredInput> kept = new ArrayList<>(resources);
        kept.removeIf(this::isTooLong);
        if (period == -1) {
            double largest = kept.stream().mapToDouble(this::hours).filter(h -> !Double.isNaN(h)).max()
                    .orElse(0);
            period = (int) (Math.max(0, largest) * MILLIS_PER_HOUR / 300);
        }
        kept.forEach(this::checkOne);
    }

    private double hours(DeclaredInput input) {
        return input.window().value() < 0 ? automatic : input.window().value();
    }

    private boolean isTooLong(DeclaredInput input) {
        boolean tooLong = input.window().value() > 0 && samples(input.window().value()).isEmpty();
        if (tooLong && Double.isFinite(input.window().value())) {
            tell(input, FindingKind.WINDOW_TOO_LONG, Integer.toString(period));
        }
        return tooLong;
    }

    private void tell(DeclaredInput input, FindingKind kind, String... details) {
        declarations.add(input.window().place(), kind, number(input.window().value()), details);
    }

    private void checkOne(DeclaredInput input) {
        double hours = hours(input);
        boolean shorter = period > hours * MILLIS_PER_HOUR;
        if (input.window().value() >= 0 && shorter) {
            tell(input, FindingKind.WINDOW_BELOW_PERIOD, Integer.toString(period));
        }
        boolean own = input.window().value() >= 0 && !shorter;
        OptionalLong samples = samples(own ? hours : automatic);
        boolean enough = samples.isPresent() && samples.getAsLong() >= read.samplesForForecast();
        if (own && !enough && samples.isPresent() && input.isForecast()) {
            tell(input, FindingKind.WINDOW_TOO_SHORT, Long.toString(samples.getAsLong()),
                    Integer.toString(period));
        } else if (own && read.rewritten()) {
            tell(input, FindingKind.WINDOW_NOT_KEPT);
        } else if (!own && !enough && (samples.isEmpty() || input.isForecast())) {
            automaticFor = input;
        }
    }

    private void tellAutomatic() {
        OptionalLong samples = samples(automatic);
        if (samples.isEmpty() && period > 0) {
            configuration.add(items.place(8), FindingKind.AUTOMATIC_WINDOW_TOO_LONG, number(automatic),
                    Integer.toString(period));
        } else {
            configuration.add(items.place(8), FindingKind.AUTOMATIC_WINDOW_TOO_SHORT, number(automatic),
                    Long.toString(samples.orElse(0)), Integer.toString(period));
        }
    }

    /** How many samples fit; nothing when the agent cannot keep any. */
    private OptionalLong samples(double hours) {
        double samples = hours * MILLIS_PER_HOUR / period;
        if (period == 0 || Double.isNaN(samples) || (long) samples > MOST_SAMPLES) {
            return OptionalLong.empty();
        }
        return OptionalLong.of(Math.max(1, (long) samples));
    }

    private static String number(double hours) {
        return hours == Math.rint(hours) && Math.abs(hours) < 1e9
                ? String.format(Locale.ROOT, "%.0f", hours) : Double.toString(hours);
    }
}
