package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Arrays;
import java.util.Optional;

/** Checks the text of AutoConfig.ini: reads it as the agent does and tells what it makes of it. */
final class ConfigurationCheck {

    private static final int NAMES = 5;
    private static final int LAST_REQUIRED = 9;

    private final CheckedText text;
    private final CheckScanner scanner;
    private final String[] names = new String[NAMES];
    private final int[] places = new int[CheckedItems.LAST];
    private final int[] numbers = new int[CheckedItems.LAST - NAMES];
    private int read;

    private ConfigurationCheck(CheckedText text) {
        this.text = text;
        scanner = new CheckScanner(text.text());
        Arrays.fill(places, -1);
    }

    /**
     * Checks a configuration.
     *
     * @param text the file's text, which takes the findings
     * @return the items; empty when the agent refuses the file
     */
    static Optional<CheckedItems> check(CheckedText text) {
        text.checkBytes();
        ConfigurationCheck check = new ConfigurationCheck(text);
        if (!check.readNames() || !check.readNumbers()) {
            return Optional.empty();
        }
        CheckedItems items = new CheckedItems(check.names, check.places, check.numbers, check.read);
        check.judge(items);
        return Optional.of(items);
    }

    private boolean readNames() {
        for (int item = 1; item <= NAMES; item++) {
            Optional<CheckScanner.Part> word = scanner.word();
            if (word.isEmpty()) {
                return missing(item);
            }
            names[item - 1] = word.get().text();
            places[item - 1] = word.get().start();
            checkComment(item);
        }
        return true;
    }

    private boolean missing(int item) {
        int last = text.text().length();
        while (last > 0 && text.text().charAt(last - 1) <= ' ') {
            last--;
        }
        text.add(Math.max(0, last - 1), FindingKind.ITEM_MISSING, "", Integer.toString(item),
                CheckedItems.meaning(item));
        return false;
    }

    private void checkComment(int item) {
        String name = names[item - 1];
        if (name.startsWith("#") || name.startsWith(";") || name.startsWith("/*") || name.startsWith("[")) {
            text.add(places[item - 1], FindingKind.COMMENT_IN_CONFIGURATION, Finding.quoted(name),
                    Integer.toString(item), CheckedItems.meaning(item));
        }
    }

    /** False when a required item is missing. A word that is no number stays in the way of all later ones. */
    private boolean readNumbers() {
        for (int item = CheckedItems.FIRST_NUMBER; item <= CheckedItems.LAST; item++) {
            Optional<CheckScanner.Part> number = scanner.wholeNumber();
            if (number.isPresent()) {
                take(item, number.get());
            } else if (!scanner.atEnd()) {
                stuck(item);
                return true;
            } else if (item <= LAST_REQUIRED) {
                return missing(item);
            } else {
                return true;
            }
        }
        scanner.word().ifPresent(word -> text.add(word.start(), FindingKind.SURPLUS_ITEM,
                Finding.quoted(word.text())));
        return true;
    }

    private void take(int item, CheckScanner.Part number) {
        numbers[item - CheckedItems.FIRST_NUMBER] = CheckScanner.toWhole(number.text());
        places[item - 1] = number.start();
        read++;
        if (CheckScanner.isOutOfRange(number.text())) {
            text.add(number.start(), FindingKind.NUMBER_OUT_OF_RANGE, Finding.excerpt(number.text()),
                    "item " + item + ", " + CheckedItems.meaning(item) + ",",
                    Integer.toString(CheckScanner.toWhole(number.text())));
        }
    }

    private void stuck(int item) {
        int place = scanner.position();
        boolean behindNumber = read > 0 && Character.isDigit(text.text().charAt(place - 1));
        if (behindNumber) {
            int start = places[item - 2];
            String word = text.text().substring(start, place) + scanner.rest();
            text.add(start, FindingKind.NUMBER_WITH_REST, Finding.quoted(word), Integer.toString(item - 1),
                    CheckedItems.meaning(item - 1), Integer.toString(numbers[read - 1]), becomeZero(item));
        } else {
            text.add(place, FindingKind.NUMBER_MALFORMED, Finding.quoted(scanner.rest()),
                    Integer.toString(item), CheckedItems.meaning(item), becomeZero(item));
        }
    }

    private static String becomeZero(int item) {
        return item == CheckedItems.LAST ? "item 11 becomes 0" : "items " + item + " to 11 become 0";
    }

    private void judge(CheckedItems items) {
        if (!items.names()[0].endsWith("/")) {
            text.add(places[0], FindingKind.HOME_WITHOUT_SEPARATOR, Finding.quoted(names[0]),
                    Finding.quoted(names[0] + names[1]), Finding.quoted(names[0] + "/"));
        }
        judgePath(items.archive(), 2);
        judgePath(items.path(3), 3);
        if (items.isRead(6)) {
            judgePeriod(items.number(6));
        }
        judgeHours(items);
        if (items.isRead(9) && items.number(9) <= 0) {
            text.add(places[8], FindingKind.ARCHIVE_LIMIT_EMPTY, Integer.toString(items.number(9)));
        }
    }

    private void judgePath(String path, int item) {
        int longest = Arrays.stream(path.split("/")).mapToInt(String::length).max().orElse(0);
        if (longest > 255 || path.length() > 4095) {
            text.add(places[item - 1], FindingKind.PATH_TOO_LONG,
                    Integer.toString(longest > 255 ? longest : path.length()), Integer.toString(item),
                    CheckedItems.meaning(item));
        }
    }

    private void judgePeriod(int period) {
        String found = Integer.toString(period);
        int place = places[5];
        if (period == 0) {
            text.add(place, FindingKind.PERIOD_ZERO, found);
        } else if (period < -1) {
            text.add(place, FindingKind.PERIOD_NEGATIVE, found);
        } else if (period > 0 && period < 1000) {
            text.add(place, FindingKind.PERIOD_WITHOUT_PAUSE, found);
        } else if (period > 0 && period % 1000 != 0) {
            text.add(place, FindingKind.PERIOD_CUT, found, Integer.toString(period / 1000));
        }
    }

    private void judgeHours(CheckedItems items) {
        for (int item = 7; item <= 8; item++) {
            if (items.isRead(item) && items.number(item) < 0) {
                text.add(places[item - 1], FindingKind.FORECAST_HOURS_NEGATIVE,
                        Integer.toString(items.number(item)), Integer.toString(item),
                        CheckedItems.meaning(item));
            }
        }
        if (items.isRead(8) && items.number(7) >= items.number(8)) {
            text.add(places[7], FindingKind.FORECAST_HOURS_EMPTY, Integer.toString(items.number(8)),
                    Integer.toString(items.number(7)));
        }
    }
}
