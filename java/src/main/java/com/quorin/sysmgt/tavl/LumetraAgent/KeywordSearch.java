package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.Optional;

/** Looks for one keyword of the declarations after the other, and tells what is passed over on the way. */
final class KeywordSearch {

    private static final String HEADER = "BeginResourceDeclaration";
    private static final String BEGIN = "BeginResourceInput";
    private static final String OBJECT = "FindObject";
    private static final String OPEN = "/*";
    private static final String CLOSE = "*/";
    private static final List<String> KEYWORDS = List.of(HEADER, BEGIN, OBJECT, "FindInstance", "FindCounter",
            "WindowSize", "NameIs", "EndResourceDeclaration", "EndResourceInput", "AnalyticalMethod",
            "UpperLimitAbs", "UpperLimitCalc", "LowerLimitAbs", "LowerLimitCalc", "CulpritMarker");

    /** Of what is passed over at once, this many words are looked at. */
    private static final int MOST_PASSED = 10_000;

    private final CheckedText text;
    private final CheckScanner scanner;
    private final List<CheckScanner.Part> passed = new ArrayList<>();
    private int foundAt;
    private int openComment = -1;
    private int forgotten = -1;
    private int firstComment = -1;
    private boolean passedInput;
    private boolean inGluedComment;

    /**
     * Looks in a text.
     *
     * @param text    the text, which takes the findings
     * @param scanner the place in it
     */
    KeywordSearch(CheckedText text, CheckScanner scanner) {
        this.text = text;
        this.scanner = scanner;
    }

    /**
     * Whether a word is a keyword.
     *
     * @param word the word
     * @return true for one, comment marks excluded
     */
    static boolean isKeyword(String word) {
        return KEYWORDS.contains(word);
    }

    /**
     * Where the keyword stands that was found last; where the search for a missing one began.
     *
     * @return the place
     */
    int foundAt() {
        return foundAt;
    }

    /**
     * Whether the beginning of an input was passed over, so that the agent never rewrites the file.
     *
     * @return true when something is lost
     */
    boolean passedInput() {
        return passedInput;
    }

    /**
     * Where the first comment stands.
     *
     * @return the place; -1 without one
     */
    int firstComment() {
        return firstComment;
    }

    /**
     * Takes note of a comment that stands elsewhere.
     *
     * @param place where it begins
     */
    void noteComment(int place) {
        firstComment = firstComment < 0 ? place : firstComment;
    }

    /**
     * Leaves out a word, of which something was told already.
     *
     * @param place where it stands
     */
    void forget(int place) {
        forgotten = place;
    }

    /**
     * Finds the keyword that starts the declarations; an error is told when it is missing. What stands before
     * it may be anything.
     *
     * @return whether it was found
     */
    boolean header() {
        boolean found = seek(HEADER);
        if (found) {
            tellHeaderInputs();
        } else {
            passed.stream().filter(word -> resembles(word.text(), HEADER)).forEach(this::tellHint);
            tellMissing(HEADER);
        }
        return found;
    }

    /** An input before the declarations, or their start in what looks like a comment. */
    private void tellHeaderInputs() {
        tellInputs(HEADER);
        int open = -1;
        for (CheckScanner.Part word : passed) {
            open = opens(word.text()) ? word.start() : open;
            open = word.text().endsWith(CLOSE) ? -1 : open;
        }
        if (open >= 0) {
            text.add(open, FindingKind.COMMENT_MARK_GLUED, Finding.quoted(wordAt(open)),
                    "what follows it counts");
            inGluedComment = true;
        }
    }

    private String wordAt(int place) {
        return passed.stream().filter(word -> word.start() == place).findFirst().orElseThrow().text();
    }

    /**
     * Finds a keyword; an error is told when it is missing.
     *
     * @param keyword the keyword
     * @return whether it was found
     */
    boolean find(String keyword) {
        boolean found = seek(keyword);
        passed.forEach(this::noteWord);
        if (found) {
            tellPassed(keyword);
        } else {
            tellMissing(keyword);
        }
        return found;
    }

    /**
     * Finds a keyword that may be missing at the end of the text.
     *
     * @param keyword the keyword
     * @return whether it was found
     */
    boolean findOrEnd(String keyword) {
        boolean found = seek(keyword);
        passed.forEach(this::noteWord);
        tellPassed(keyword);
        return found;
    }

    private boolean seek(String keyword) {
        passed.clear();
        openComment = -1;
        for (Optional<CheckScanner.Part> next = scanner.word(); next.isPresent(); next = scanner.word()) {
            CheckScanner.Part word = next.get();
            if (word.text().equals(keyword)) {
                foundAt = word.start();
                return true;
            }
            if (word.text().equals(OPEN)) {
                if (!skipComment(word.start())) {
                    openComment = word.start();
                    return false;
                }
            } else {
                if (passed.size() < MOST_PASSED) {
                    passed.add(word);
                }
                passedInput |= word.text().equals(OBJECT)
                        || word.text().equals(BEGIN) && !keyword.equals(OBJECT);
            }
        }
        return false;
    }

    /** False when the comment has no end. A mark against a word does not end it. */
    private boolean skipComment(int start) {
        noteComment(start);
        boolean told = false;
        for (Optional<CheckScanner.Part> word = scanner.word(); word.isPresent(); word = scanner.word()) {
            String mark = word.get().text();
            if (mark.equals(CLOSE)) {
                return true;
            }
            if (mark.endsWith(CLOSE) && !told) {
                told = true;
                text.add(word.get().start(), FindingKind.COMMENT_MARK_GLUED, Finding.quoted(mark),
                        "the comment goes on");
            }
        }
        return false;
    }

    private void tellMissing(String keyword) {
        if (openComment >= 0) {
            text.add(openComment, FindingKind.COMMENT_NOT_CLOSED, OPEN);
        } else {
            text.add(foundAt, FindingKind.KEYWORD_MISSING, "", keyword);
        }
    }

    /**
     * Tells of a word that looks like a comment mark or a keyword and is none.
     *
     * @param word the word
     */
    void noteWord(CheckScanner.Part word) {
        if (opens(word.text()) || word.text().endsWith(CLOSE) && !word.text().equals(CLOSE)) {
            boolean closes = word.text().endsWith(CLOSE);
            if (!inGluedComment || !closes) {
                text.add(word.start(), FindingKind.COMMENT_MARK_GLUED, Finding.quoted(word.text()),
                        "what follows it counts");
            }
            inGluedComment = !closes;
        } else {
            inGluedComment = inGluedComment && !word.text().equals(CLOSE);
            tellHint(word);
        }
    }

    private static boolean opens(String word) {
        return word.startsWith(OPEN) && !word.equals(OPEN);
    }

    private void tellHint(CheckScanner.Part word) {
        meant(word.text()).ifPresent(keyword -> {
            FindingKind kind = word.text().equalsIgnoreCase(keyword)
                    ? FindingKind.KEYWORD_IN_OTHER_CASE : FindingKind.KEYWORD_GLUED;
            text.add(word.start(), kind, Finding.quoted(word.text()), keyword);
        });
    }

    /** The keyword that a word resembles; empty for a keyword itself. */
    private static Optional<String> meant(String word) {
        return isKeyword(word) ? Optional.empty()
                : KEYWORDS.stream().filter(keyword -> resembles(word, keyword)).findFirst();
    }

    private static boolean resembles(String word, String keyword) {
        String start = word.substring(0, Math.min(word.length(), keyword.length()));
        return start.toLowerCase(Locale.ROOT).equals(keyword.toLowerCase(Locale.ROOT))
                && (word.length() == keyword.length()
                        || !Character.isLetterOrDigit(word.charAt(keyword.length())));
    }

    /** What was passed over before the keyword that was found. */
    private void tellPassed(String keyword) {
        List<CheckScanner.Part> before = new ArrayList<>();
        for (CheckScanner.Part word : passed) {
            if (word.text().equals(OBJECT) || word.text().equals(BEGIN) && !keyword.equals(OBJECT)) {
                break;
            }
            before.add(word);
        }
        if (before.stream().allMatch(word -> meant(word.text()).isEmpty())) {
            tellFirst(before, keyword);
        }
        tellInputs(keyword);
    }

    /** The first keyword that is passed over stands for all words; without one, the first word does. */
    private void tellFirst(List<CheckScanner.Part> words, String keyword) {
        Optional<CheckScanner.Part> known = words.stream()
                .filter(word -> isKeyword(word.text()) && !word.text().equals(BEGIN)).findFirst();
        if (known.isPresent()) {
            text.add(known.get().start(), FindingKind.KEYWORD_OUT_OF_PLACE, known.get().text(), keyword);
        } else {
            tellIgnored(words, keyword);
        }
    }

    private void tellIgnored(List<CheckScanner.Part> words, String keyword) {
        boolean comment = false;
        for (CheckScanner.Part word : words) {
            String spelled = word.text();
            comment = comment || opens(spelled);
            boolean told = comment || word.start() == forgotten
                    || spelled.endsWith(CLOSE) && !spelled.equals(CLOSE);
            if (!told && !spelled.equals(BEGIN)) {
                text.add(word.start(), FindingKind.WORD_IGNORED, Finding.quoted(spelled), keyword);
                return;
            }
            comment = comment && !spelled.endsWith(CLOSE);
        }
    }

    /** An input begins with the one keyword or, without it, with the other. */
    private void tellInputs(String keyword) {
        boolean begun = false;
        for (CheckScanner.Part word : passed) {
            boolean begin = word.text().equals(BEGIN) && !keyword.equals(OBJECT);
            boolean object = word.text().equals(OBJECT);
            if (begin || object && !begun) {
                text.add(word.start(), FindingKind.INPUT_SKIPPED, word.text(), keyword);
            }
            begun = (begun || begin) && !object;
        }
    }

    /**
     * Where an input begins in what the agent did not read. The words of a comment without an end count.
     *
     * @param text the text
     * @param from where the unread part begins
     * @return the place; empty when there is none
     */
    static Optional<Integer> firstInput(String text, int from) {
        CheckScanner words = new CheckScanner(text);
        words.moveTo(from);
        boolean commentsClose = true;
        for (Optional<CheckScanner.Part> word = words.word(); word.isPresent(); word = words.word()) {
            if (word.get().text().equals(BEGIN) || word.get().text().equals(OBJECT)) {
                return Optional.of(word.get().start());
            }
            if (word.get().text().equals(OPEN) && commentsClose) {
                int inside = words.position();
                commentsClose = passesComment(words);
                words.moveTo(commentsClose ? words.position() : inside);
            }
        }
        return Optional.empty();
    }

    private static boolean passesComment(CheckScanner words) {
        Optional<CheckScanner.Part> word = words.word();
        while (word.isPresent() && !word.get().text().equals(CLOSE)) {
            word = words.word();
        }
        return word.isPresent();
    }
}
