package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;

/** Judges what the inputs of accepted declarations mean: objects, counters, names, repetitions. */
final class DeclarationJudge {

    private static final Set<String> SYSTEM_WIDE =
            Set.of("PercentProcessesUsed", "PercentSwapSpaceUsed", "PercentFileDescriptorsUsed");
    private static final Set<String> WHOLE_LIMIT = Set.of("PercentProcessesUsed", "PercentFileDescriptorsUsed");
    private static final Set<String> DISK_COUNTERS = Set.of("PercentFreeSpaceUsed", "PercentFreeInodesUsed");
    private static final int LONGEST_FILE_NAME = 255;
    private static final String SUFFIX = "BMPRD.gnp";

    private final CheckedText text;
    private final Map<String, CheckedInput> known = new HashMap<>();
    private final Map<String, CheckedInput> diskCounters = new HashMap<>();
    private final Map<String, CheckedInput> trendFiles = new HashMap<>();
    private final List<CheckedInput> resources = new ArrayList<>();

    private DeclarationJudge(CheckedText text) {
        this.text = text;
    }

    /**
     * Whether the agent has a counter for an input.
     *
     * @param input the input
     * @return false when its value is 0 for ever
     */
    static boolean isCounted(CheckedInput input) {
        return SYSTEM_WIDE.contains(input.object())
                || input.isDisk() && DISK_COUNTERS.contains(input.counter());
    }

    /**
     * Judges the inputs.
     *
     * @param text   the text of the declarations, which takes the findings
     * @param inputs its inputs
     * @return the inputs without those that repeat an earlier one
     */
    static List<CheckedInput> judge(CheckedText text, List<CheckedInput> inputs) {
        DeclarationJudge judge = new DeclarationJudge(text);
        inputs.forEach(judge::judge);
        return judge.resources;
    }

    private void judge(CheckedInput input) {
        judgeObject(input);
        if (input.method() < 0 || input.method() > 3) {
            text.add(input.place("AnalyticalMethod"), FindingKind.METHOD_UNKNOWN,
                    Integer.toString(input.method()));
        }
        if (WHOLE_LIMIT.contains(input.object()) && input.upperLimit() > 0 && input.upperLimit() < 1) {
            text.add(input.place("UpperLimitAbs"), FindingKind.UPPER_LIMIT_BELOW_ONE,
                    Double.toString(input.upperLimit()));
        }
        String identity = input.object() + '\0' + input.instance() + '\0' + input.counter();
        CheckedInput first = known.putIfAbsent(identity, input);
        if (first != null) {
            text.add(input.place(), FindingKind.INPUT_DUPLICATE, Finding.quoted(input.object()), line(first));
            return;
        }
        resources.add(input);
        if (!judgeDisk(input) && input.isForecast()) {
            judgeTrendFiles(input);
        }
    }

    private String line(CheckedInput input) {
        return Integer.toString(text.line(input.place()));
    }

    private void judgeObject(CheckedInput input) {
        String object = input.object();
        if (object.equals("Process")) {
            text.add(input.place(), FindingKind.OBJECT_PROCESS, Finding.quoted(object));
        } else if (!input.isDisk() && !SYSTEM_WIDE.contains(object)) {
            text.add(input.place(), FindingKind.OBJECT_UNKNOWN, Finding.quoted(object));
        }
    }

    /** True when an earlier input stands for the same disks already. */
    private boolean judgeDisk(CheckedInput input) {
        if (!input.isDisk()) {
            return false;
        }
        if (input.instance().indexOf('/') >= 0) {
            text.add(input.place("FindInstance"), FindingKind.DISK_INSTANCE_IGNORED,
                    Finding.quoted(input.instance()));
        }
        if (!isCounted(input)) {
            text.add(input.place("FindCounter"), FindingKind.COUNTER_UNKNOWN,
                    Finding.quoted(input.counter()));
        }
        CheckedInput first = diskCounters.putIfAbsent(input.counter(), input);
        if (first != null) {
            text.add(input.place(), FindingKind.DISK_INPUT_REPEATED, Finding.quoted(input.counter()),
                    line(first));
        }
        return first != null;
    }

    private void judgeTrendFiles(CheckedInput input) {
        String instance = input.isDisk() ? "" : input.instance().replaceAll("[/: *?\"><|]", "_");
        int at = input.place("NameIs");
        int length = input.name().length() + instance.length() + SUFFIX.length();
        if (input.name().indexOf('/') >= 0) {
            text.add(at, FindingKind.NAME_WITH_SLASH, Finding.quoted(input.name()));
        } else if (length > LONGEST_FILE_NAME) {
            text.add(at, FindingKind.TREND_FILE_NAME_TOO_LONG, Integer.toString(length));
        }
        CheckedInput first = trendFiles.putIfAbsent(
                input.isDisk() ? input.name() + "\0disks" : input.name() + instance, input);
        if (first != null) {
            text.add(at, FindingKind.TREND_FILES_SHARED, Finding.quoted(input.name()), line(first));
        }
    }
}
