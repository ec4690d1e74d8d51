package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.Set;

/** Checks the text of the declarations: reads it as the agent does and tells what it makes of it. */
final class DeclarationCheck {

    private static final char END_BYTE = '\u00ff';
    private static final String NO_MORE = "no input follows it";
    private static final Set<String> TWO_TYPES = Set.of("Process", Counters.DISK);

    private final CheckedText text;
    private final CheckScanner scanner;
    private final KeywordSearch search;
    private final List<CheckedInput> inputs = new ArrayList<>();
    private boolean refused;
    private boolean argumentCut;
    private boolean sawFile;
    private boolean endTold;

    private DeclarationCheck(CheckedText text) {
        this.text = text;
        scanner = new CheckScanner(text.text());
        search = new KeywordSearch(text, scanner);
    }

    /**
     * What the agent makes of the declarations.
     *
     * @param inputs    the inputs, in their order
     * @param accepted  whether the agent takes the file
     * @param rewritten whether nothing that the agent read keeps it from rewriting the file
     * @param comment   where the first comment stands; -1 without one
     */
    record Result(List<CheckedInput> inputs, boolean accepted, boolean rewritten, int comment) {}

    /**
     * Checks declarations.
     *
     * @param text the file's text, which takes the findings
     * @return what the agent makes of them
     */
    static Result check(CheckedText text) {
        text.checkBytes();
        DeclarationCheck check = new DeclarationCheck(text);
        boolean whole = check.readAll();
        boolean lost = check.sawFile || check.argumentCut || check.search.passedInput() || !whole;
        return new Result(List.copyOf(check.inputs), !check.refused, !lost, check.search.firstComment());
    }

    /** Reads input after input; false when an input is left behind the end of the declarations. */
    private boolean readAll() {
        if (!sought(search.header())) {
            return true;
        }
        boolean more = true;
        boolean whole = true;
        while (more && sought(search.find("FindObject"))) {
            int begin = search.foundAt();
            Optional<String> object = argument("FindObject");
            if (object.isEmpty() || !readInput(object.get(), begin)) {
                refused = true;
                return true;
            }
            int unread = scanner.position();
            Optional<CheckScanner.Part> next = scanner.word();
            // at the end of the text the agent takes the object for the next word
            more = next.map(CheckScanner.Part::text).orElse(object.get()).equals("BeginResourceInput");
            whole = more || endAt(next, unread, object.get());
        }
        return whole;
    }

    private boolean sought(boolean found) {
        refused = refused || !found;
        return found;
    }

    private boolean readInput(String object, int begin) {
        if (object.equals("File")) {
            sawFile = true;
            return true;
        }
        CheckedInput input = new CheckedInput(begin);
        input.put("FindObject", object, begin);
        boolean complete = readArgument(input, "FindInstance") && readArgument(input, "FindCounter")
                && readReal(input, "WindowSize") && readArgument(input, "NameIs") && readMethod(input)
                && readReal(input, "UpperLimitAbs") && readReal(input, "UpperLimitCalc")
                && readReal(input, "LowerLimitAbs") && readReal(input, "LowerLimitCalc")
                && readArgument(input, "CulpritMarker") && readEnd(object, begin);
        if (complete) {
            inputs.add(input);
        }
        return complete;
    }

    private boolean readEnd(String object, int begin) {
        if (TWO_TYPES.contains(object)) {
            return search.find("EndResourceInput");
        }
        if (!search.findOrEnd("EndResourceInput")) {
            endTold = true;
            text.add(begin, FindingKind.END_OF_INPUT_MISSING, "");
        }
        return true;
    }

    private boolean readArgument(CheckedInput input, String keyword) {
        if (!search.find(keyword)) {
            return false;
        }
        int at = search.foundAt();
        Optional<String> argument = argument(keyword);
        argument.ifPresent(value -> input.put(keyword, value, at));
        return argument.isPresent();
    }

    /** What the agent keeps of the argument of the keyword that was just found; empty when there is none. */
    private Optional<String> argument(String keyword) {
        int keywordAt = search.foundAt();
        int from = scanner.position();
        int open = text.text().indexOf('(', from);
        int close = open < 0 ? -1 : text.text().indexOf(')', open + 1);
        int end = text.text().indexOf(END_BYTE, from);
        if (end >= 0 && (close < 0 || end < close)) {
            text.add(end, FindingKind.BYTE_255, "\\xff", keyword);
            return Optional.empty();
        }
        if (close < 0) {
            text.add(keywordAt, FindingKind.ARGUMENT_MISSING, "", keyword);
            return Optional.empty();
        }
        scanner.moveTo(close + 1);
        String between = text.text().substring(from, open).strip();
        if (!between.isEmpty()) {
            text.add(keywordAt, FindingKind.WORDS_BEFORE_ARGUMENT, Finding.quoted(between), keyword);
        }
        return Optional.of(kept(keyword, open + 1, text.text().substring(open + 1, close)));
    }

    private String kept(String keyword, int at, String argument) {
        String kept = CheckedInput.cut(argument);
        int nul = argument.indexOf('\0');
        argumentCut = argumentCut || kept.length() < argument.length();
        if (nul >= 0) {
            text.add(at, FindingKind.ARGUMENT_CUT_AT_NUL, Finding.quoted(argument.substring(0, nul)),
                    keyword);
        } else if (kept.length() < argument.length()) {
            text.add(at, FindingKind.ARGUMENT_TOO_LONG, Finding.quoted(argument.substring(kept.length())),
                    keyword, Integer.toString(argument.length()));
        }
        if (argument.indexOf('\n') >= 0) {
            text.add(at, FindingKind.ARGUMENT_SPANS_LINES, Finding.excerpt(argument), keyword);
        } else if (!argument.strip().equals(argument)) {
            text.add(at, FindingKind.ARGUMENT_WITH_OUTER_BLANK, Finding.excerpt(argument), keyword);
        }
        return kept;
    }

    private boolean readReal(CheckedInput input, String keyword) {
        if (!search.find(keyword)) {
            return false;
        }
        Optional<CheckScanner.Part> number = scanner.realNumber();
        input.put(keyword, number.map(n -> CheckScanner.toReal(n.text())).orElse(0.0), valuePlace(number));
        judgeNumber(keyword, number);
        number.filter(n -> !Double.isFinite(CheckScanner.toReal(n.text()))).ifPresent(n ->
                text.add(n.start(), FindingKind.VALUE_NOT_FINITE, Finding.quoted(n.text()), keyword));
        return true;
    }

    private boolean readMethod(CheckedInput input) {
        String keyword = "AnalyticalMethod";
        if (!search.find(keyword)) {
            return false;
        }
        Optional<CheckScanner.Part> number = scanner.wholeNumber();
        input.put(keyword, number.map(n -> CheckScanner.toWhole(n.text())).orElse(0), valuePlace(number));
        judgeNumber(keyword, number);
        number.filter(n -> CheckScanner.isOutOfRange(n.text())).ifPresent(n ->
                text.add(n.start(), FindingKind.NUMBER_OUT_OF_RANGE, Finding.excerpt(n.text()), keyword,
                        Integer.toString(CheckScanner.toWhole(n.text()))));
        return true;
    }

    private int valuePlace(Optional<CheckScanner.Part> number) {
        return number.map(CheckScanner.Part::start).orElse(search.foundAt());
    }

    /** What stands in a number's place, or behind it without a blank. */
    private void judgeNumber(String keyword, Optional<CheckScanner.Part> number) {
        String rest = scanner.rest();
        int at = scanner.position();
        if (number.isEmpty()) {
            int place = rest.isEmpty() ? search.foundAt() : at;
            text.add(place, FindingKind.VALUE_MALFORMED, rest.isEmpty() ? "the end" : Finding.quoted(rest),
                    keyword);
            search.forget(at);
        } else if (!rest.isEmpty() && !KeywordSearch.isKeyword(rest)) {
            text.add(at, FindingKind.VALUE_WITH_REST, Finding.quoted(rest), keyword,
                    Finding.excerpt(number.get().text()));
            search.forget(at);
        }
    }

    /** Tells how the declarations end; false when an input is left behind their end. */
    private boolean endAt(Optional<CheckScanner.Part> next, int unread, String object) {
        Optional<Integer> left = KeywordSearch.firstInput(text.text(), unread);
        String rest = left.map(at -> "the inputs from line " + text.line(at) + " on are ignored")
                .orElse(NO_MORE);
        String word = next.map(CheckScanner.Part::text).orElse("");
        int at = next.map(CheckScanner.Part::start).orElse(unread);
        if (object.equals("File")) {
            text.add(search.foundAt(), FindingKind.OBJECT_FILE, Finding.quoted(object), rest);
        } else if (next.isEmpty() && !endTold) {
            text.add(search.foundAt(), FindingKind.END_OF_DECLARATIONS_MISSING, "");
        } else if (word.equals("/*")) {
            endAtComment(at, left.isPresent(), rest);
        } else if (next.isPresent() && !word.equals("EndResourceDeclaration")) {
            search.noteWord(next.get());
            text.add(at, FindingKind.DECLARATIONS_END_EARLY, Finding.quoted(word), rest);
        } else {
            left.ifPresent(place -> text.add(place, FindingKind.INPUT_AFTER_END, ""));
        }
        return left.isEmpty();
    }

    private void endAtComment(int at, boolean inputsLeft, String rest) {
        if (inputsLeft) {
            text.add(at, FindingKind.COMMENT_BETWEEN_INPUTS, "", rest);
        } else {
            search.noteComment(at);
        }
    }
}
