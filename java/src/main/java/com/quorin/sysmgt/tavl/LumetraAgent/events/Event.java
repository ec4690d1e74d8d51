package com.quorin.sysmgt.tavl.LumetraAgent.events;

import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.time.Instant;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.util.List;
import java.util.Locale;

/** Something that the agent told: an exhaustion ahead, a limit reached, or a failure of its own. */
public sealed interface Event {

    /** The kinds of events. */
    enum Type {
        EXHAUSTION("exhaustion"),
        UPPER_TOLERANCE("upperTolerance"),
        INNER_TOLERANCE("innerTolerance"),
        FATAL("fatal");

        /** The kinds that belong to a resource. */
        public static final List<Type> OF_RESOURCES = List.of(EXHAUSTION, UPPER_TOLERANCE, INNER_TOLERANCE);

        private final String word;

        Type(String word) {
            this.word = word;
        }

        /** The word for it in files, in the JSON and in the metrics. */
        public String word() {
            return word;
        }
    }

    /**
     * A moment as files and the JSON have it.
     *
     * @param text         ISO 8601 to the millisecond, with the zone of the machine
     * @param epochSeconds the same in whole seconds
     */
    record Moment(String text, long epochSeconds) {

        private static final DateTimeFormatter ISO =
                DateTimeFormatter.ofPattern("uuuu-MM-dd'T'HH:mm:ss.SSSXXX", Locale.ROOT);

        public static Moment of(Instant time) {
            return new Moment(ISO.format(time.atZone(ZoneId.systemDefault())), time.getEpochSecond());
        }
    }

    /** A resource as the library names it in events; both names may be null. */
    record Subject(String resource, String instance) {

        /** What a failure is about. */
        static final Subject NONE = new Subject(null, null);

        /** What the library sends in the place of an instance where there is none. */
        private static final String NO_INSTANCE = "Null";

        /** From the words of a callback. */
        static Subject told(String resource, String instance) {
            return new Subject(resource, NO_INSTANCE.equals(instance) ? null : instance);
        }

        /** From the names in a publication, which are texts of bytes; as {@link #plain} has them. */
        public static Subject published(String resource, String instance) {
            return new Subject(Words.asFromLibrary(resource), Words.asFromLibrary(instance)).plain();
        }

        /** The same names, with one spelling for "no instance". */
        public Subject plain() {
            boolean none = instance == null || instance.equals(NO_INSTANCE);
            return new Subject(resource == null ? "" : resource, none ? "" : instance);
        }
    }

    /**
     * What is known of an announced exhaustion besides the announcement.
     *
     * @param trackRecord  what came of earlier announcements, in words; null when there is nothing to say
     * @param episodeSince when its episode began, in seconds since the epoch; 0 when that is unknown
     */
    record Background(String trackRecord, long episodeSince) {

        public static final Background NONE = new Background(null, 0);
    }

    /**
     * A resource will be exhausted.
     *
     * @param secondsToExhaustion how far away it is; not finite when it is unknown
     * @param timeToExhaustion    the same in the library's words; may be null
     * @param culprits            the processes that use most of it
     * @param culpritText         the same in the library's words; may be null
     * @param background          what else is known of it
     */
    record Exhaustion(Moment at, Subject subject, double secondsToExhaustion, String timeToExhaustion,
            List<Culprit> culprits, String culpritText, Background background) implements Event {

        @Override
        public Type type() {
            return Type.EXHAUSTION;
        }
    }

    /**
     * A resource has reached a limit of its tolerance.
     *
     * @param type  which limit
     * @param limit the limit in the resource's unit; not finite when it is unknown
     */
    record LimitReached(Moment at, Type type, Subject subject, double limit) implements Event {}

    /**
     * Something failed.
     *
     * @param message what; may be null
     */
    record Failure(Moment at, String message) implements Event {

        @Override
        public Type type() {
            return Type.FATAL;
        }

        @Override
        public Subject subject() {
            return Subject.NONE;
        }
    }

    /** When it was told. */
    Moment at();

    /** What kind of event it is. */
    Type type();

    /** The resource that it is about; {@link Subject#NONE} for a failure. */
    Subject subject();
}
