package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.quorin.sysmgt.tavl.LumetraAgent.HostFeed;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.function.Function;
import java.util.function.Supplier;

/**
 * Reads what the library publishes: numbers little-endian, a text as its length and its bytes, a list as its
 * length and its elements, a flag as one byte. The library's agent/hostFeed.h has the order. Bytes that are not
 * so are an IllegalStateException that says where and what was expected.
 */
public final class FeedReader {

    private static final int RUNNING = 1;
    private static final int OVER = 2;
    private static final int POINT = 2 * Double.BYTES;
    private static final int LEAST_LEFT_OUT = 2 * Integer.BYTES;
    private static final int LEAST_RESOURCE = 119;
    private static final int LEAST_COUNTER = 34;
    private static final int LEAST_REPORT = 12;

    private final byte[] array;
    private final ByteBuffer bytes;

    private FeedReader(byte[] array) {
        this.array = array;
        this.bytes = ByteBuffer.wrap(array).order(ByteOrder.LITTLE_ENDIAN);
    }

    static Publication publication(byte[] array) {
        return new FeedReader(array).whole(FeedReader::publication);
    }

    static CounterTable counters(byte[] array) {
        return new FeedReader(array).whole(FeedReader::counters);
    }

    static Curves curves(byte[] array) {
        return new FeedReader(array).whole(FeedReader::curves);
    }

    private <T> T whole(Function<FeedReader, T> read) {
        int version = number("the version");
        if (version != HostFeed.VERSION) {
            throw wrong(0, "version " + HostFeed.VERSION, "version " + version);
        }
        T value = read.apply(this);
        if (bytes.hasRemaining()) {
            throw wrong(bytes.position(), "the end", bytes.remaining() + " more bytes");
        }
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

    private Publication publication() {
        long serial = longNumber("the serial");
        int kind = choice(RUNNING, OVER, "the kind of publication");
        long cycles = longNumber("the number of cycles");
        return new Publication(serial, cycles, kind == OVER ? Optional.empty() : Optional.of(state()));
    }

    private RunState state() {
        RunState.Cycle cycle = new RunState.Cycle(number("the time"), real("the seconds of sampling"),
                real("the seconds of forecasts"), real("the seconds of writing"), real("the seconds of all"));
        long archiveBytes = longNumber("the size of the archive");
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
        return new RunState(cycle, new RunState.Archive(archive, archiveBytes),
                new RunState.Settings(home, period, least, most, needed), flag("whether disks are awaited"),
                list(LEAST_LEFT_OUT, "what is left out", this::leftOut),
                list(LEAST_RESOURCE, "the resources", this::resource));
    }

    private RunState.LeftOut leftOut() {
        return new RunState.LeftOut(text("what is left out"), text("why it is left out"));
    }

    private RunResource resource() {
        RunResource.Identity identity = identity();
        RunResource.Reading reading = new RunResource.Reading(real("the value"), flag("whether it was read"),
                real("the capacity"), flag("whether it was read"), real("the configured capacity"));
        int method = number("the method");
        RunResource.Limits limits = new RunResource.Limits(real("the lower limit"), real("the upper limit"),
                RunResource.Reached.values()[choice(0, 2, "the limit that is reached")]);
        RunResource.Analysis analysis = new RunResource.Analysis(method, limits, real("the window"),
                number("the slots of the window"), number("the samples"));
        RunResource.Forecast forecast = forecast();
        return new RunResource(identity, reading, analysis, forecast, new RunResource.Notification(
                flag("whether a notification is pending"), real("the notification level"),
                number("the cycles left")));
    }

    private RunResource.Identity identity() {
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
        RunResource.Forecast forecast = new RunResource.Forecast(number("the time of the forecast"),
                text("the model"), real("the hours to exhaustion"));
        return forecast.time() == 0 ? null : forecast;
    }

    private Curves curves() {
        TrendView.Curve samples = curve("the samples");
        RunResource.Forecast outcome = forecast();
        double level = real("the notification level");
        TrendView.Curve points = curve("the forecast's points");
        return new Curves(samples, Optional.ofNullable(outcome)
                .map(known -> new Curves.Forecast(known, level, points)));
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

    private <T> List<T> list(int leastSize, String what, Supplier<T> element) {
        int length = length(leastSize, what);
        List<T> list = new ArrayList<>(length);
        for (int i = 0; i < length; i++) {
            list.add(element.get());
        }
        return List.copyOf(list);
    }

    /** No length makes this take more memory than the bytes can fill. */
    private int length(int leastSize, String what) {
        int length = number("the length of " + what);
        if (length < 0 || (long) length * leastSize > bytes.remaining()) {
            throw wrong(bytes.position() - Integer.BYTES, "the length of " + what,
                    length + " with " + bytes.remaining() + " bytes left");
        }
        return length;
    }

    private String text(String what) {
        int length = length(1, what);
        int start = bytes.position();
        bytes.position(start + length);
        return new String(array, start, length, StandardCharsets.ISO_8859_1);
    }

    private int choice(int least, int most, String what) {
        int value = number(what);
        if (value < least || value > most) {
            throw wrong(bytes.position() - Integer.BYTES, what + ", " + least + " to " + most, "" + value);
        }
        return value;
    }

    private boolean flag(String what) {
        byte value = need(Byte.BYTES, what).get();
        if (value != 0 && value != 1) {
            throw wrong(bytes.position() - 1, what + ", 0 or 1", "" + value);
        }
        return value == 1;
    }

    private int number(String what) {
        return need(Integer.BYTES, what).getInt();
    }

    private long longNumber(String what) {
        return need(Long.BYTES, what).getLong();
    }

    private double real(String what) {
        return need(Double.BYTES, what).getDouble();
    }

    private ByteBuffer need(int size, String what) {
        if (bytes.remaining() < size) {
            throw wrong(bytes.position(), what + " in " + size + " bytes", bytes.remaining() + " bytes");
        }
        return bytes;
    }

    private static IllegalStateException wrong(int offset, String expected, String found) {
        return new IllegalStateException("the library's publication is not understood: at byte " + offset
                + " it has " + found + " in the place of " + expected);
    }
}
