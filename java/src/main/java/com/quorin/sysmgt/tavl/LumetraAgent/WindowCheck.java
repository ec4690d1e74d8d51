package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.OptionalLong;

/** Checks whether the analysis windows hold what a forecast needs, by the agent's own arithmetic. */
final class WindowCheck {

    private static final double MILLIS_PER_HOUR = 3600.0 * 1000.0;
    private static final double MOST_SAMPLES = 4294967295.0;
    private static final String KEYWORD = "WindowSize";

    private final CheckedText declarations;
    private final double automatic;
    private final boolean rewritten;
    private int period;
    private CheckedInput automaticFor;

    private WindowCheck(CheckedText declarations, CheckedItems items, boolean rewritten) {
        this.declarations = declarations;
        this.rewritten = rewritten;
        automatic = items.number(8) / 10.0;
        period = items.number(6);
    }

    /**
     * Checks the windows. Where the period or the hours are no use, there is nothing to say about windows.
     *
     * @param configuration the text of the configuration, which takes findings
     * @param items         its items
     * @param declarations  the text of the declarations, which takes findings
     * @param resources     their inputs, each resource once
     * @param rewritten     whether the agent will rewrite the declarations
     */
    static void check(CheckedText configuration, CheckedItems items, CheckedText declarations,
            List<CheckedInput> resources, boolean rewritten) {
        WindowCheck check = new WindowCheck(declarations, items, rewritten);
        if (items.isRead(8) && items.number(8) >= 0 && (check.period > 0 || check.period == -1)) {
            check.checkAll(resources);
            if (check.automaticFor != null) {
                check.tellAutomatic(configuration, items.place(8));
            }
        }
    }

    private void checkAll(List<CheckedInput> resources) {
        List<CheckedInput> kept = new ArrayList<>(resources);
        kept.removeIf(this::isTooLong);
        if (period == -1) {
            double largest = kept.stream().mapToDouble(this::hours).filter(h -> !Double.isNaN(h)).max()
                    .orElse(0);
            period = (int) (Math.max(0, largest) * MILLIS_PER_HOUR / 300);
        }
        kept.forEach(this::checkOne);
    }

    private double hours(CheckedInput input) {
        return input.window() < 0 ? automatic : input.window();
    }

    private boolean isTooLong(CheckedInput input) {
        boolean tooLong = input.window() > 0 && samples(input.window()).isEmpty();
        if (tooLong && Double.isFinite(input.window())) {
            tell(input, FindingKind.WINDOW_TOO_LONG, Integer.toString(period));
        }
        return tooLong;
    }

    private void tell(CheckedInput input, FindingKind kind, String... details) {
        declarations.add(input.place(KEYWORD), kind, number(input.window()), details);
    }

    private void checkOne(CheckedInput input) {
        double hours = hours(input);
        boolean shorter = period > hours * MILLIS_PER_HOUR;
        if (input.window() >= 0 && shorter) {
            tell(input, FindingKind.WINDOW_BELOW_PERIOD, Integer.toString(period));
        }
        boolean own = input.window() >= 0 && !shorter;
        OptionalLong samples = samples(own ? hours : automatic);
        boolean enough = samples.isPresent() && samples.getAsLong() >= SamplePlan.SAMPLES_FOR_FORECAST;
        if (own && !enough && samples.isPresent() && input.isForecast()) {
            tell(input, FindingKind.WINDOW_TOO_SHORT, Long.toString(samples.getAsLong()),
                    Integer.toString(period));
        } else if (own && rewritten) {
            tell(input, FindingKind.WINDOW_NOT_KEPT);
        } else if (!own && !enough && (samples.isEmpty() || input.isForecast())) {
            automaticFor = input;
        }
    }

    private void tellAutomatic(CheckedText configuration, int place) {
        OptionalLong samples = samples(automatic);
        if (samples.isEmpty() && period > 0) {
            configuration.add(place, FindingKind.AUTOMATIC_WINDOW_TOO_LONG, number(automatic),
                    Integer.toString(period));
        } else {
            configuration.add(place, FindingKind.AUTOMATIC_WINDOW_TOO_SHORT, number(automatic),
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
