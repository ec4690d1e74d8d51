package com.quorin.sysmgt.tavl.LumetraAgent.check;

import java.util.ArrayList;
import java.util.List;
import java.util.Locale;

/**
 * Everything that a check of configuration and declarations can say. In the texts, {@code %1$s} is what was
 * found and the following ones its details.
 */
public enum FindingKind {

    /** The home is no directory. */
    HOME_MISSING(true, "%1$s is no directory", "a home; lumetra run --home makes one"),

    /** The working directory is missing. */
    BIN_MISSING(true, "there is no directory %1$s, in which the agent runs",
            "the directory bin; lumetra run makes it"),

    /** The configuration cannot be opened. */
    CONFIGURATION_UNOPENABLE(true, "the configuration cannot be opened: %1$s", "a readable file"),

    /** The configuration is a directory, a pipe or a device. */
    CONFIGURATION_NOT_A_FILE(true, "the configuration is %1$s and reads as empty", "a file of items"),

    /** The configuration ends before its ninth item. */
    ITEM_MISSING(true, "the file ends before item %2$s, %3$s", "at least 9 items"),

    /** The declarations cannot be opened. */
    DECLARATIONS_UNOPENABLE(true, "the declarations %1$s, item 5, cannot be opened: %2$s", "a readable file"),

    /** The declarations are a directory, a pipe or a device. */
    DECLARATIONS_NOT_A_FILE(true, "the declarations %1$s, item 5, are %2$s and read as empty",
            "a file of declarations"),

    /** A keyword is missing. */
    KEYWORD_MISSING(true, "there is no %2$s behind this place", "%2$s as a word of its own"),

    /** An argument is missing. */
    ARGUMENT_MISSING(true, "%2$s has no argument", "%2$s (TEXT)"),

    /** A byte that ends the text stands where an argument is looked for. */
    BYTE_255(true, "the byte 255 in or before the argument of %2$s ends the file for the agent",
            "%2$s (TEXT) in UTF-8"),

    /** A comment has no end. */
    COMMENT_NOT_CLOSED(true, "a comment begins here and has no end", "*/ as a word of its own"),

    /** The home directory does not end with the separator. */
    HOME_WITHOUT_SEPARATOR(false, "item 1 is %1$s, without a final /, so the archive becomes %2$s",
            "%3$s"),

    /** A comment where none can be. */
    COMMENT_IN_CONFIGURATION(false, "%1$s is taken for item %2$s, %3$s", "no comments and no sections: "
            + "every word of this file is an item"),

    /** A word where an item is a number. */
    NUMBER_MALFORMED(false, "item %2$s, %3$s, is %1$s: %4$s", "a whole number"),

    /** A number with something behind it. */
    NUMBER_WITH_REST(false, "item %2$s, %3$s, is %1$s: it is read as %4$s, and %5$s", "a whole number"),

    /** A whole number that 32 bits cannot hold. */
    NUMBER_OUT_OF_RANGE(false, "%2$s is %1$s: it is taken for %3$s",
            "a whole number from -2147483648 to 2147483647"),

    /** More than eleven items. */
    SURPLUS_ITEM(false, "%1$s stands behind item 11 and is ignored",
            "at most 11 items, names without blanks"),

    /** A period of 0. */
    PERIOD_ZERO(false, "item 6, the period, is 0: no samples are kept for forecasts, and no forecast comes",
            "-1, or 1000 and more milliseconds"),

    /** A negative period that does not ask for the automatic one. */
    PERIOD_NEGATIVE(false, "item 6, the period, is %1$s: one sample is kept, and no forecast comes",
            "-1, or 1000 and more milliseconds"),

    /** A period below a second. */
    PERIOD_WITHOUT_PAUSE(false, "item 6, the period, is %1$s ms: the agent samples without a pause",
            "-1, or 1000 and more milliseconds"),

    /** A period that is no whole number of seconds. */
    PERIOD_CUT(false, "item 6, the period, is %1$s ms: the agent pauses for %2$s s", "whole seconds"),

    /** A negative number of hours. */
    FORECAST_HOURS_NEGATIVE(false, "item %2$s, %3$s, is %1$s hours", "0 and more hours"),

    /** The nearest forecast is not before the farthest. */
    FORECAST_HOURS_EMPTY(false, "no exhaustion is announced between %2$s hours, item 7, and %1$s, item 8",
            "item 8 above item 7"),

    /** No archive is kept. */
    ARCHIVE_LIMIT_EMPTY(false, "item 9, the archive size, is %1$s: no sample stays in the archive",
            "1 megabyte and more"),

    /** A zero byte. */
    NUL_BYTE(false, "a zero byte; the text holds %1$s", "text without zero bytes"),

    /** Bytes that are no UTF-8. */
    NOT_UTF8(false, "%1$s is no UTF-8: such a name cannot be passed on as it is", "UTF-8"),

    /** A byte order mark. */
    BYTE_ORDER_MARK(false, "a byte order mark, which becomes part of the first word",
            "UTF-8 without such a mark"),

    /** A file that is not read to its end. */
    FILE_TOO_LONG(false, "the file has %1$s bytes, and the rest is not read", "at most %2$s bytes"),

    /** A path that no file system takes. */
    PATH_TOO_LONG(false, "item %2$s, %3$s, leads to a name of %1$s bytes",
            "at most 255 bytes a name and 4095 in all"),

    /** Two items lead to one file. */
    SAME_FILE(false, "%2$s is the same file as %3$s: %1$s", "a file of its own for each"),

    /** An argument that does not fit its field. */
    ARGUMENT_TOO_LONG(false, "the argument of %2$s has %3$s bytes; its field has 127: %1$s is cut off",
            "at most 127 bytes"),

    /** An argument that ends at a zero byte. */
    ARGUMENT_CUT_AT_NUL(false, "the argument of %2$s ends at its zero byte, as %1$s", "no zero byte"),

    /** An argument with blanks at an end. */
    ARGUMENT_WITH_OUTER_BLANK(false, "the argument of %2$s keeps its outer blanks: (%1$s)",
            "no blanks behind ( and before )"),

    /** An argument of several lines. */
    ARGUMENT_SPANS_LINES(false, "the argument of %2$s goes on over a line's end: (%1$s)",
            "a ) on the same line"),

    /** Words before an argument. */
    WORDS_BEFORE_ARGUMENT(false, "%1$s between %2$s and its argument is ignored", "%2$s (TEXT)"),

    /** A value that is no number. */
    VALUE_MALFORMED(false, "%2$s has no number but %1$s, and is 0", "a number"),

    /** A value with something behind it. */
    VALUE_WITH_REST(false, "%2$s is read as %3$s; %1$s behind it is ignored",
            "a number as a word of its own"),

    /** A value that is infinite or no number. */
    VALUE_NOT_FINITE(false, "%2$s is %1$s", "a finite number"),

    /** An unknown method. */
    METHOD_UNKNOWN(false, "AnalyticalMethod is %1$s: no event ever comes", "0, 1, 2 or 3"),

    /** A capacity that is cut to nothing. */
    UPPER_LIMIT_BELOW_ONE(false, "UpperLimitAbs %1$s is cut to the whole number 0: no value is ever read",
            "0 for the measured capacity, or 1 and more"),

    /** An unknown object. */
    OBJECT_UNKNOWN(false, "nothing counts the object %1$s: it is archived as 0 for ever",
            "%2$s"),

    /** The object that has no instances. */
    OBJECT_PROCESS(false, "the object %1$s has no instances on Linux: nothing is sampled",
            "%2$s"),

    /** The object that ends the declarations. */
    OBJECT_FILE(false, "the object %1$s ends the declarations: %2$s", "another object"),

    /** An unknown counter of disks. */
    COUNTER_UNKNOWN(false, "LogicalDisk has no counter %1$s: every disk is archived as 0 for ever",
            "%2$s"),

    /** A single disk. */
    DISK_INSTANCE_IGNORED(false, "FindInstance %1$s narrows nothing down: a LogicalDisk stands for every disk, and no "
            + "rule leaves out the one of this name", "*, unless a rule would leave out that disk"),

    /** The same resource twice. */
    INPUT_DUPLICATE(false, "object %1$s, instance and counter are those of line %2$s: "
            + "this input is ignored", "each resource once"),

    /** The same counter of all disks twice. */
    DISK_INPUT_REPEATED(false, "the disks have the counter %1$s from line %2$s already: this input "
            + "adds none", "each counter of disks once"),

    /** An input that was passed over. */
    INPUT_SKIPPED(false, "an input begins here, but the agent passes over it to find %2$s",
            "%2$s before the next input"),

    /** A keyword that was passed over. */
    KEYWORD_OUT_OF_PLACE(false, "%1$s is passed over, as the agent looks for %2$s here",
            "each keyword once, in its order"),

    /** A keyword with something against it. */
    KEYWORD_GLUED(false, "%1$s is no keyword", "%2$s as a word of its own"),

    /** A keyword in other letters. */
    KEYWORD_IN_OTHER_CASE(false, "%1$s is no keyword", "%2$s"),

    /** Words that mean nothing. */
    WORD_IGNORED(false, "%1$s is ignored, as the agent looks for %2$s here", "keywords and comments only"),

    /** A comment mark with something against it. */
    COMMENT_MARK_GLUED(false, "%1$s is no comment mark: %2$s", "/* and */ as words of their own"),

    /** A comment that ends the declarations. */
    COMMENT_BETWEEN_INPUTS(false, "a comment between two inputs ends the declarations: %2$s",
            "comments inside of inputs"),

    /** Something that ends the declarations. */
    DECLARATIONS_END_EARLY(false, "%1$s ends the declarations: %2$s",
            "BeginResourceInput or EndResourceDeclaration"),

    /** Inputs behind the end. */
    INPUT_AFTER_END(false, "an input begins behind the end of the declarations and is ignored",
            "EndResourceDeclaration behind the last input"),

    /** No EndResourceInput. */
    END_OF_INPUT_MISSING(false, "the file ends in this input", "EndResourceInput"),

    /** No EndResourceDeclaration. */
    END_OF_DECLARATIONS_MISSING(false, "the file ends behind this input", "EndResourceDeclaration"),

    /** A comment that goes with the first rewriting. */
    COMMENT_NOT_KEPT(false, "this comment goes when the agent rewrites the file after its first cycle",
            "comments in a copy"),

    /** A window that goes with the first rewriting. */
    WINDOW_NOT_KEPT(false, "WindowSize %1$s holds for one run: the agent writes -1 over it", "-1."),

    /** A window that never gives a forecast. */
    WINDOW_TOO_SHORT(false, "WindowSize %1$s hours hold %2$s samples at a period of %3$s ms: "
            + "no forecast ever comes", "at least 200 samples"),

    /** A window below a period. */
    WINDOW_BELOW_PERIOD(false, "WindowSize %1$s hours are shorter than the period of %2$s ms: "
            + "the automatic window takes its place", "a negative window, or at least one period"),

    /** A window that memory cannot hold. */
    WINDOW_TOO_LONG(false, "WindowSize %1$s hours hold too many samples at a period of %2$s ms: "
            + "the resource is not sampled", "at most 4294967295 samples"),

    /** An automatic window that never gives a forecast. */
    AUTOMATIC_WINDOW_TOO_SHORT(false, "the automatic window, a tenth of item 8, is %1$s hours and holds "
            + "%2$s samples at a period of %3$s ms: no forecast ever comes", "at least 200 samples"),

    /** An automatic window that memory cannot hold. */
    AUTOMATIC_WINDOW_TOO_LONG(false, "the automatic window, a tenth of item 8, is %1$s hours and holds too "
            + "many samples at a period of %2$s ms: no samples are kept", "at most 4294967295 samples"),

    /** Two resources with the same trend files. */
    TREND_FILES_SHARED(false, "NameIs %1$s and the instance are those of line %2$s: both write the same "
            + "trend files", "another NameIs"),

    /** A display name that cannot be a file name. */
    NAME_WITH_SLASH(false, "NameIs %1$s holds a /: no trend files are written", "a name without /"),

    /** A display name that makes a file name too long. */
    TREND_FILE_NAME_TOO_LONG(false, "NameIs, the instance and BMPRD.gnp make a file name of %1$s bytes: "
            + "no trend files are written", "at most 255 bytes"),

    /** A directory that nobody makes. */
    DIRECTORY_MISSING(false, "there is no directory %1$s for %2$s", "an existing directory"),

    /** A directory where nothing can be written. */
    DIRECTORY_UNWRITABLE(false, "the directory %1$s cannot be written; it is for %2$s",
            "a writable directory"),

    /** A file of the agent that cannot be one. */
    OUTPUT_NOT_A_FILE(false, "%2$s %1$s is no file and cannot be written", "a file, or nothing yet"),

    /** A file of the agent that cannot be written. */
    OUTPUT_UNWRITABLE(false, "%2$s %1$s cannot be written", "a writable file"),

    /** Skip rules that cannot be read. */
    SKIP_RULES_UNREADABLE(false, "the skip rules cannot be read and count as none: %1$s", "a readable file, or none"),

    /** A line that is no rule. */
    SKIP_LINE_MALFORMED(false, "%1$s is no rule and is ignored", "fstype NAME or mount PATTERN"),

    /** A type that is none. */
    SKIP_TYPE_MALFORMED(false, "fstype has %1$s behind it and is ignored",
            "one name of a type, as in fstype tmpfs"),

    /** A pattern that no mount point can match. */
    SKIP_PATTERN_RELATIVE(false, "mount has %1$s behind it and is ignored",
            "a pattern that begins with a /, as in mount /run/user/*"),

    /** A rule that says nothing on this machine. */
    SKIP_MATCHES_NOTHING(false, "the rule %1$s matches nothing that is mounted now",
            "the type, or a pattern for the whole mount point, of something mounted; no * matches a /"),

    /** Somebody else may write there. */
    PLACE_OPEN_TO_OTHERS(false, "%1$s can be written by others than its owner, who could change what the agent does",
            "a place that nobody but its owner and root may write"),

    /** Somebody else owns it. */
    PLACE_OF_ANOTHER(false, "%1$s belongs to user %2$s, who could change what the agent does",
            "root or the agent's user as its owner"),

    /** Files that the agent will delete. */
    DELETION_AT_START(false, "a start deletes from the data home directory: %1$s",
            "no *.ini, *.gnp and *.cul but the agent's own");

    private final boolean error;
    private final String shape;
    private final String expected;

    FindingKind(boolean error, String shape, String expected) {
        this.error = error;
        this.shape = shape;
        this.expected = expected;
    }

    static FindingKind ofId(String id) {
        return valueOf(id.toUpperCase(Locale.ROOT).replace('-', '_'));
    }

    /** The constant's name in small letters, with hyphens. */
    String id() {
        return name().toLowerCase(Locale.ROOT).replace('_', '-');
    }

    /** Whether the agent refuses what was found, or only might not mean it. */
    public boolean isError() {
        return error;
    }

    /** Whether it is about who may change something, whatever stands there. */
    public boolean isOfAPlace() {
        return this == PLACE_OPEN_TO_OTHERS || this == PLACE_OF_ANOTHER;
    }

    /** "error" or "warning". */
    String severity() {
        return error ? "error" : "warning";
    }

    /**
     * What is said, without what was expected.
     *
     * @param found   empty for nothing
     * @param details what else the text tells
     */
    String message(String found, List<String> details) {
        return String.format(Locale.ROOT, shape, arguments(found, details));
    }

    /** What was expected instead of what was found. */
    String expected(String found, List<String> details) {
        return String.format(Locale.ROOT, expected, arguments(found, details));
    }

    private static Object[] arguments(String found, List<String> details) {
        List<String> all = new ArrayList<>(details);
        all.add(0, found);
        return all.toArray();
    }
}
