package com.quorin.sysmgt.tavl.LumetraAgent.check;

import java.util.List;
import java.util.Locale;
import java.util.OptionalLong;

/** Checks whether the analysis windows, as the library sizes them, hold what a forecast needs. */
final class WindowCheck {

    private final CheckedFile configuration;
    private final ConfigurationItems items;
    private final CheckedFile declarations;
    private final LibraryCheck.Declarations read;
    private final LibraryCheck.Windows windows;
    private final String period;
    private boolean lacksAutomatic;

    WindowCheck(CheckedFile configuration, ConfigurationItems items, CheckedFile declarations,
            LibraryCheck.Declarations read) {
        this.configuration = configuration;
        this.items = items;
        this.declarations = declarations;
        this.read = read;
        windows = read.windows();
        period = Integer.toString(windows.period());
    }

    /**
     * Checks the windows of the inputs, each resource once. Where the period or the hours are no use, there is nothing
     * to say about windows.
     */
    void check(List<DeclaredInput> resources) {
        boolean isOfUse = items.number(6) > 0 || items.number(6) == -1;
        if (items.isRead(8) && items.number(8) >= 0 && isOfUse) {
            resources.forEach(this::checkOne);
            if (lacksAutomatic) {
                tellAutomatic();
            }
        }
    }

    private void checkOne(DeclaredInput input) {
        switch (input.sized().fate()) {
            case TOO_LONG -> {
                if (Double.isFinite(input.window().value())) {
                    tell(input, FindingKind.WINDOW_TOO_LONG, period);
                }
            }
            case BELOW_PERIOD -> {
                tell(input, FindingKind.WINDOW_BELOW_PERIOD, period);
                checkAutomatic(input);
            }
            case AUTOMATIC -> checkAutomatic(input);
            case OWN -> checkOwn(input);
        }
    }

    private void tell(DeclaredInput input, FindingKind kind, String... details) {
        declarations.add(input.window().place(), kind, number(input.window().value()), details);
    }

    private void checkAutomatic(DeclaredInput input) {
        OptionalLong samples = windows.automaticSamples();
        lacksAutomatic |= samples.isEmpty() || isTooFew(samples.getAsLong()) && input.isForecast();
    }

    private boolean isTooFew(long samples) {
        return samples < windows.samplesForForecast();
    }

    private void checkOwn(DeclaredInput input) {
        OptionalLong samples = input.sized().samples();
        if (samples.isPresent() && isTooFew(samples.getAsLong()) && input.isForecast()) {
            tell(input, FindingKind.WINDOW_TOO_SHORT, Long.toString(samples.getAsLong()), period);
        } else if (read.rewritten()) {
            tell(input, FindingKind.WINDOW_NOT_KEPT);
        }
    }

    private void tellAutomatic() {
        String hours = number(windows.automaticHours());
        OptionalLong samples = windows.automaticSamples();
        if (samples.isEmpty() && windows.period() > 0) {
            configuration.add(items.place(8), FindingKind.AUTOMATIC_WINDOW_TOO_LONG, hours, period);
        } else {
            configuration.add(items.place(8), FindingKind.AUTOMATIC_WINDOW_TOO_SHORT, hours,
                    Long.toString(samples.orElse(0)), period);
        }
    }

    private static String number(double hours) {
        return hours == Math.rint(hours) && Math.abs(hours) < 1e9
                ? String.format(Locale.ROOT, "%.0f", hours) : Double.toString(hours);
    }
}
