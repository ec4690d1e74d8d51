package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.CounterTable;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Counters;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;

/** Judges what the inputs of accepted declarations mean: objects, counters, names, repetitions. */
final class DeclarationJudge {

    private static final int LONGEST_FILE_NAME = 255;

    private final CheckedFile file;
    private final Map<String, DeclaredInput> known = new HashMap<>();
    private final Map<String, DeclaredInput> diskCounters = new HashMap<>();
    private final Map<String, DeclaredInput> trendFiles = new HashMap<>();
    private final Map<String, DeclaredInput> trendFilesOfDisks = new HashMap<>();
    private final List<DeclaredInput> resources = new ArrayList<>();

    private DeclarationJudge(CheckedFile file) {
        this.file = file;
    }

    /** Whether the agent has a counter for an input; without one its value is 0 for ever. */
    static boolean isCounted(DeclaredInput input) {
        return counterOf(input).isPresent();
    }

    private static Optional<CounterTable.Counter> counterOf(DeclaredInput input) {
        return CounterTable.current().of(input.object().value(), input.counter().value());
    }

    /** Judges the inputs of a file, and gives back those that do not repeat an earlier one. */
    static List<DeclaredInput> judge(CheckedFile file, List<DeclaredInput> inputs) {
        DeclarationJudge judge = new DeclarationJudge(file);
        inputs.forEach(judge::judge);
        return judge.resources;
    }

    private void judge(DeclaredInput input) {
        judgeObject(input);
        judgeNumbers(input);
        String object = input.object().value();
        String identity = object + '\0' + input.instance().value() + '\0' + input.counter().value();
        DeclaredInput first = known.putIfAbsent(identity, input);
        if (first != null) {
            file.add(input.place(), FindingKind.INPUT_DUPLICATE, Finding.quoted(object), line(first));
            return;
        }
        resources.add(input);
        if (!judgeDisk(input) && input.isForecast()) {
            judgeTrendFiles(input);
        }
    }

    private static String line(DeclaredInput input) {
        return Integer.toString(input.place().line());
    }

    private void judgeObject(DeclaredInput input) {
        String object = input.object().value();
        if (object.equals(Counters.PROCESS)) {
            file.add(input.place(), FindingKind.OBJECT_PROCESS, Finding.quoted(object),
                    CounterTable.current().objects());
        } else if (!CounterTable.current().knows(object)) {
            file.add(input.place(), FindingKind.OBJECT_UNKNOWN, Finding.quoted(object),
                    CounterTable.current().objects());
        }
    }

    private void judgeNumbers(DeclaredInput input) {
        int method = input.method().value();
        if (method < 0 || method > 3) {
            file.add(input.method().place(), FindingKind.METHOD_UNKNOWN, Integer.toString(method));
        }
        double limit = input.upperLimit().value();
        boolean isCut = counterOf(input).map(CounterTable.Counter::wholeLimit).orElse(false);
        if (isCut && limit > 0 && limit < 1) {
            file.add(input.upperLimit().place(), FindingKind.UPPER_LIMIT_BELOW_ONE, Double.toString(limit));
        }
    }

    /** True when an earlier input stands for the same disks already. */
    private boolean judgeDisk(DeclaredInput input) {
        if (!input.isDisk()) {
            return false;
        }
        String instance = input.instance().value();
        String counter = Finding.quoted(input.counter().value());
        if (instance.indexOf('/') >= 0) {
            file.add(input.instance().place(), FindingKind.DISK_INSTANCE_IGNORED, Finding.quoted(instance));
        }
        if (!isCounted(input)) {
            file.add(input.counter().place(), FindingKind.COUNTER_UNKNOWN, counter,
                    CounterTable.current().countersOf(Counters.DISK));
        }
        DeclaredInput first = diskCounters.putIfAbsent(input.counter().value(), input);
        if (first != null) {
            file.add(input.place(), FindingKind.DISK_INPUT_REPEATED, counter, line(first));
        }
        return first != null;
    }

    private void judgeTrendFiles(DeclaredInput input) {
        String name = input.name().value();
        Place at = input.name().place();
        int length = input.trendFile().length();
        if (name.indexOf('/') >= 0) {
            file.add(at, FindingKind.NAME_WITH_SLASH, Finding.quoted(name));
        } else if (length > LONGEST_FILE_NAME) {
            file.add(at, FindingKind.TREND_FILE_NAME_TOO_LONG, Integer.toString(length));
        }
        DeclaredInput first = (input.isDisk() ? trendFilesOfDisks : trendFiles).putIfAbsent(input.trendFile(), input);
        if (first != null) {
            file.add(at, FindingKind.TREND_FILES_SHARED, Finding.quoted(name), line(first));
        }
    }
}
