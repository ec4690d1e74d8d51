package com.quorin.sysmgt.tavl.LumetraAgent.check;

import java.util.Arrays;
import java.util.Optional;

/** Checks a configuration: has the library read it, and judges what it reads. */
final class ConfigurationCheck {

    private static final int LONGEST_NAME = 255;
    private static final int LONGEST_PATH = 4095;

    private final CheckedFile file;
    private final ConfigurationItems items;

    private ConfigurationCheck(CheckedFile file, ConfigurationItems items) {
        this.file = file;
        this.items = items;
    }

    /** Checks the content of a configuration; no items when the agent refuses it. */
    static Optional<ConfigurationItems> check(CheckedFile file, byte[] text) {
        LibraryCheck.Configuration read = LibraryCheck.configurationOf(text);
        file.add(read.findings());
        if (!read.accepted()) {
            return Optional.empty();
        }
        new ConfigurationCheck(file, read.items()).judge();
        return Optional.of(read.items());
    }

    private void judge() {
        String home = items.name(1);
        if (!home.endsWith("/")) {
            file.add(items.place(1), FindingKind.HOME_WITHOUT_SEPARATOR, Finding.quoted(home),
                    Finding.quoted(home + items.name(2)), Finding.quoted(home + "/"));
        }
        judgePath(items.archive(), 2);
        judgePath(items.path(3), 3);
        if (items.isRead(6)) {
            judgePeriod(items.number(6));
        }
        judgeHours();
        if (items.isRead(9) && items.number(9) <= 0) {
            tell(9, FindingKind.ARCHIVE_LIMIT_EMPTY);
        }
    }

    /** A finding about a number. */
    private void tell(int item, FindingKind kind, String... details) {
        file.add(items.place(item), kind, Integer.toString(items.number(item)), details);
    }

    private void judgePath(String path, int item) {
        int longest = Arrays.stream(path.split("/")).mapToInt(String::length).max().orElse(0);
        if (longest > LONGEST_NAME || path.length() > LONGEST_PATH) {
            file.add(items.place(item), FindingKind.PATH_TOO_LONG,
                    Integer.toString(longest > LONGEST_NAME ? longest : path.length()),
                    Integer.toString(item), ConfigurationItems.meaning(item));
        }
    }

    private void judgePeriod(int period) {
        if (period == 0) {
            tell(6, FindingKind.PERIOD_ZERO);
        } else if (period < -1) {
            tell(6, FindingKind.PERIOD_NEGATIVE);
        } else if (period > 0 && period < 1000) {
            tell(6, FindingKind.PERIOD_WITHOUT_PAUSE);
        } else if (period > 0 && period % 1000 != 0) {
            tell(6, FindingKind.PERIOD_CUT, Integer.toString(period / 1000));
        }
    }

    private void judgeHours() {
        for (int item = 7; item <= 8; item++) {
            if (items.isRead(item) && items.number(item) < 0) {
                tell(item, FindingKind.FORECAST_HOURS_NEGATIVE, Integer.toString(item),
                        ConfigurationItems.meaning(item));
            }
        }
        if (items.isRead(8) && items.number(7) >= items.number(8)) {
            tell(8, FindingKind.FORECAST_HOURS_EMPTY, Integer.toString(items.number(7)));
        }
    }
}
