package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.quorin.sysmgt.tavl.LumetraAgent.HostFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.score.EndedEpisode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.text.LibraryBytes;
import java.util.List;
import java.util.Optional;
import java.util.function.Function;

/** Reads what the library publishes; its agent/hostFeed.h has the order. */
public final class FeedReader extends LibraryBytes {

    private static final int RUNNING = 1;
    private static final int OVER = 2;
    private static final int POINT = 2 * Double.BYTES;
    private static final int LEAST_LEFT_OUT = 4 * Integer.BYTES;
    private static final int LEAST_RESOURCE = 135;
    private static final int LEAST_ENDED = 92;
    private static final int LEAST_COUNTER = 34;
    private static final int LEAST_REPORT = 12;

    private static final LeftOutKind[] KINDS = LeftOutKind.values();
    private static final RunResource.Reached[] LIMITS = RunResource.Reached.values();
    private static final RunResource.WatchReason[] REASONS = RunResource.WatchReason.values();

    private final KnownIdentities before;
    private final KnownIdentities identities;

    /** A reader of anything that the library publishes. */
    FeedReader(byte[] array) {
        this(array, KnownIdentities.NONE);
    }

    /**
     * A reader of a publication.
     *
     * @param before the identities of an earlier one: those that are the same at the same place are not made again,
     *               which would be most of what is made, and collected, in each cycle
     */
    FeedReader(byte[] array, KnownIdentities before) {
        super(array, "the library's publication");
        this.before = before;
        identities = new KnownIdentities(array);
    }

    /** The whole publication. */
    Publication publication() {
        return whole(FeedReader::parts);
    }

    /** The identities that were read. */
    KnownIdentities identities() {
        return identities;
    }

    /** Of a publication, without reading on. */
    static long serial(byte[] array) {
        FeedReader reader = new FeedReader(array);
        reader.version(HostFeed.VERSION);
        return reader.longNumber("the serial");
    }

    static CounterTable counters(byte[] array) {
        return new FeedReader(array).whole(FeedReader::counters);
    }

    static Curves curves(byte[] array) {
        return new FeedReader(array).whole(FeedReader::curves);
    }

    static ArchiveReading reading(byte[] array) {
        return new FeedReader(array).whole(FeedReader::reading);
    }

    private <T> T whole(Function<FeedReader, T> read) {
        version(HostFeed.VERSION);
        T value = read.apply(this);
        end();
        return value;
    }

    private CounterTable counters() {
        return new CounterTable(list(LEAST_COUNTER, "the counters", this::counter),
                list(LEAST_REPORT, "the reports", () -> new CounterTable.Report(
                        text("the display name"), text("the measure"), text("its words"))));
    }

    private CounterTable.Counter counter() {
        return new CounterTable.Counter(text("the object"), text("the counter"), text("its words"),
                text("its unit"), real("the bytes in a unit"), flag("whether limits count whole"),
                text("what 100 per cent are"), text("what 0 means"), flag("whether it is absent then"));
    }

    private Publication parts() {
        long serial = longNumber("the serial");
        int kind = choice(RUNNING, OVER, "the kind of publication");
        long cycles = longNumber("the number of cycles");
        return new Publication(serial, cycles, kind == OVER ? Optional.empty() : Optional.of(state()));
    }

    private RunState state() {
        RunState.Cycle cycle = new RunState.Cycle(longNumber("the time"),
                longNumber("the steps of the clock"), real("the seconds of sampling"),
                real("the seconds of forecasts"), real("the seconds of writing"), real("the seconds of all"));
        long archiveBytes = longNumber("the size of the archive");
        RunState.Resumed resumed = new RunState.Resumed(
                longNumber("the samples taken over"), number("the resources that took over any"));
        String home = text("the data home directory");
        String archive = text("the archive");
        text("the scratch pad");
        text("the declarations");
        text("the configuration file");
        int period = number("the period");
        int least = number("the nearest forecast");
        int most = number("the farthest forecast");
        number("the archive's limit");
        int needed = number("the samples for a forecast");
        return new RunState(cycle, new RunState.Archive(archive, archiveBytes, resumed),
                new RunState.Settings(home, period, least, most, needed), flag("whether disks are awaited"),
                list(LEAST_LEFT_OUT, "what is left out", this::leftOut),
                list(LEAST_RESOURCE, "the resources", this::resource),
                list(LEAST_ENDED, "the episodes that have ended", this::ended));
    }

    private EndedEpisode ended() {
        return new EndedEpisode(longNumber("the number of an episode"), number("the number of a resource"),
                text("the display name"), text("the instance"), Episode.read(this));
    }

    private RunState.LeftOut leftOut() {
        return new RunState.LeftOut(text("what is left out"), text("why it is left out"),
                oneOf(KINDS, "why it is left out"),
                text("the rule"));
    }

    private RunResource resource() {
        RunResource.Identity identity = identity();
        RunResource.Reading reading = new RunResource.Reading(real("the value"), flag("whether it was read"),
                real("the capacity"), flag("whether it was read"), real("the configured capacity"));
        int method = number("the method");
        RunResource.Limits limits = new RunResource.Limits(real("the lower limit"), real("the upper limit"),
                oneOf(LIMITS, "the limit that is reached"));
        RunResource.Analysis analysis = new RunResource.Analysis(method, limits, real("the window"),
                number("the slots of the window"), number("the samples"));
        RunResource.Forecast forecast = forecast();
        RunResource.Notification notification = new RunResource.Notification(
                flag("whether a notification is pending"), real("the notification level"),
                number("the cycles left"), longNumber("the onset"));
        return new RunResource(identity, reading, analysis, forecast, notification,
                oneOf(REASONS, "why it is watched"));
    }

    private RunResource.Identity identity() {
        int begin = position();
        int place = identities.count();
        RunResource.Identity identity = before.has(place)
                && passes(before.bytes(), before.begin(place), before.end(place)) ? before.at(place) : newIdentity();
        identities.add(identity, begin, position());
        return identity;
    }

    private RunResource.Identity newIdentity() {
        int id = number("the number of a resource");
        String object = text("the object");
        String instance = text("the instance");
        String counter = text("the counter");
        String name = text("the display name");
        return new RunResource.Identity(id, object, instance, counter, name,
                choice(-1, instance.length(), "the place of the mount point"));
    }

    /** Null before the first forecast. */
    private RunResource.Forecast forecast() {
        RunResource.Forecast forecast = new RunResource.Forecast(longNumber("the time of the forecast"),
                text("the model"), real("the hours to exhaustion"));
        return forecast.time() == 0 ? null : forecast;
    }

    private ArchiveReading reading() {
        return new ArchiveReading(longNumber("the bytes read"), longNumber("the bytes in all"));
    }

    private Curves curves() {
        TrendView.Curve samples = curve("the samples");
        RunResource.Forecast outcome = forecast();
        double level = real("the notification level");
        TrendView.Curve points = curve("the forecast's points");
        return new Curves(samples, Optional.ofNullable(outcome)
                .map(known -> new Curves.Forecast(known, level, points)), announcements());
    }

    private TrendView.Curve announcements() {
        int length = length(2 * Long.BYTES, "the announcements");
        double[] times = new double[length];
        double[] moments = new double[length];
        for (int i = 0; i < length; i++) {
            times[i] = longNumber("the time of an announcement");
            moments[i] = longNumber("the announced moment");
        }
        return new TrendView.Curve(times, moments);
    }

    private TrendView.Curve curve(String what) {
        int length = length(POINT, what);
        double[] times = new double[length];
        double[] values = new double[length];
        for (int i = 0; i < length; i++) {
            times[i] = real(what);
            values[i] = real(what);
        }
        return new TrendView.Curve(times, values);
    }
}
