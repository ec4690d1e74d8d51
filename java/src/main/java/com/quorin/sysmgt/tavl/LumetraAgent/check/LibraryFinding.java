package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;

/**
 * What the library says of a text. Its headers agent/configFindings.h and resources/declarationFindings.h tell
 * what belongs to each kind. Texts have one character for each byte.
 *
 * @param kind    the identifier of a {@link FindingKind}
 * @param text    what was found
 * @param keyword the keyword that it is about, or empty
 * @param read    the part of the text that was read all the same, or empty
 * @param item    the item of the configuration that it is about, or 0
 */
public record LibraryFinding(String kind, Place place, String text, String keyword, String read, int item,
        long number) {

    private static final int LAST_ITEM = 11;

    /**
     * Puts it into words.
     *
     * @param file a readable name
     */
    Finding worded(String file) {
        FindingKind worded = FindingKind.ofId(kind);
        String plain = Finding.excerpt(text);
        String quoted = Finding.quoted(text);
        String amount = Long.toString(number);
        return switch (worded) {
            case KEYWORD_MISSING, ARGUMENT_MISSING, BYTE_255, COMMENT_NOT_CLOSED, ARGUMENT_SPANS_LINES,
                    ARGUMENT_WITH_OUTER_BLANK, INPUT_SKIPPED, KEYWORD_OUT_OF_PLACE, END_OF_INPUT_MISSING,
                    END_OF_DECLARATIONS_MISSING, INPUT_AFTER_END -> finding(worded, file, plain, keyword);
            case NUL_BYTE -> finding(worded, file, amount);
            case ARGUMENT_TOO_LONG -> finding(worded, file, quoted, keyword, amount);
            case VALUE_MALFORMED -> finding(worded, file, text.isEmpty() ? "the end" : quoted, keyword);
            case VALUE_WITH_REST -> finding(worded, file, quoted, keyword, Finding.excerpt(read));
            case NUMBER_OUT_OF_RANGE -> finding(worded, file, plain, subject(), amount);
            case COMMENT_MARK_GLUED -> finding(worded, file, quoted,
                    number == 1 ? "the comment goes on" : "what follows it counts");
            case OBJECT_FILE, DECLARATIONS_END_EARLY -> finding(worded, file, quoted, inputsBehind());
            case COMMENT_BETWEEN_INPUTS -> finding(worded, file, plain, inputsBehind());
            case ITEM_MISSING -> finding(worded, file, plain, Integer.toString(item), meaning());
            case COMMENT_IN_CONFIGURATION -> finding(worded, file, quoted, Integer.toString(item), meaning());
            case NUMBER_MALFORMED -> finding(worded, file, quoted, Integer.toString(item), meaning(),
                    becomeZero(item));
            case NUMBER_WITH_REST -> finding(worded, file, quoted, Integer.toString(item), meaning(), amount,
                    becomeZero(item + 1));
            case PLACE_OPEN_TO_OTHERS, PLACE_OF_ANOTHER -> finding(worded, file, Words.ofBytes(text), amount);
            default -> finding(worded, file, quoted, keyword);
        };
    }

    private Finding finding(FindingKind worded, String file, String found, String... details) {
        return new Finding(worded, file, place, found, details);
    }

    private String subject() {
        return item > 0 ? "item " + item + ", " + meaning() + "," : keyword;
    }

    private String meaning() {
        return ConfigurationItems.meaning(item);
    }

    private String inputsBehind() {
        return number > 0 ? "the inputs from line " + number + " on are ignored" : "no input follows it";
    }

    private static String becomeZero(int first) {
        return first == LAST_ITEM ? "item 11 becomes 0" : "items " + first + " to 11 become 0";
    }
}
