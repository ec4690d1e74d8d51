package com.quorin.sysmgt.tavl.LumetraAgent.client;

import com.fasterxml.jackson.core.JsonProcessingException;
import com.fasterxml.jackson.databind.DeserializationFeature;
import com.fasterxml.jackson.databind.JsonNode;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritReport;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.io.InputStream;
import java.net.HttpURLConnection;
import java.net.SocketTimeoutException;
import java.net.URI;
import java.net.UnknownHostException;
import java.time.DateTimeException;
import java.time.Instant;
import java.time.format.DateTimeFormatter;
import java.util.Objects;
import java.util.Optional;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.TimeoutException;

/**
 * Asks a running agent by its JSON interface. What answers may be anything.
 *
 * <p>By the older of Java's clients: the younger one begins with all that https takes, also for http, which is half of
 * what a command takes of the processor.
 */
final class AgentClient {

    private static final int TIMEOUT_SECONDS = 5;
    private static final int WHOLE_ANSWER_SECONDS = 30;
    private static final int LARGEST_ANSWER = 64 << 20;
    private static final int LARGEST_ERROR = 4096;
    private static final ObjectMapper MAPPER = new ObjectMapper()
            .disable(DeserializationFeature.FAIL_ON_UNKNOWN_PROPERTIES)
            .enable(DeserializationFeature.FAIL_ON_NULL_FOR_PRIMITIVES)
            .enable(DeserializationFeature.FAIL_ON_TRAILING_TOKENS)
            .enable(DeserializationFeature.READ_UNKNOWN_ENUM_VALUES_AS_NULL);

    /**
     * An answer, as it came and what it means.
     *
     * @param now the present by the clock of the agent's machine; that of this one may differ by hours
     */
    record Overview(JsonNode json, Snapshot snapshot, Instant now) {}

    /** An answer as it came, and when it was sent. */
    private record Answer(JsonNode json, Instant date) {}

    private final URI page;
    private final int patience;
    private final int wholePatience;

    /**
     * An agent that is not asked yet.
     *
     * @param page the address of its page, ending with a slash
     */
    AgentClient(URI page) {
        this(page, TIMEOUT_SECONDS, WHOLE_ANSWER_SECONDS);
    }

    /**
     * An agent that is waited for so long.
     *
     * @param patience      how long its silence is borne, in seconds; a chart is given twice as long
     * @param wholePatience how long its whole answer may take, in seconds
     */
    AgentClient(URI page, int patience, int wholePatience) {
        this.page = page;
        this.patience = patience;
        this.wholePatience = wholePatience;
    }

    Overview overview() throws Failed {
        Answer answer = ask("api/v1/resources", patience);
        Snapshot snapshot = as(Snapshot.class, answer.json);
        if (snapshot.agent() == null || snapshot.resources() == null
                || snapshot.resources().stream().anyMatch(Objects::isNull)) {
            throw stranger("its answer is not the list of resources");
        }
        return new Overview(answer.json, snapshot, answer.date);
    }

    TrendView trend(int id) throws Failed {
        JsonNode json = get("api/v1/resources/" + id + "/trend", 2 * patience);
        TrendView trend = as(TrendView.class, json);
        if (!isCurve(trend.samples()) || trend.forecast() != null && !isCurve(trend.forecast())) {
            throw stranger("its answer is not a chart");
        }
        return trend;
    }

    /** The processes that use most of one resource. */
    CulpritReport culprits(int id) throws Failed {
        CulpritReport report = as(
                CulpritReport.class, get("api/v1/resources/" + id + "/culprits", patience));
        if (report.processes() == null || report.processes().stream().anyMatch(Objects::isNull)) {
            throw stranger("its answer is not a list of processes");
        }
        return report;
    }

    private static boolean isCurve(TrendView.Curve curve) {
        return curve != null && curve.times() != null && curve.values() != null
                && curve.times().length == curve.values().length;
    }

    private <T> T as(Class<T> type, JsonNode json) throws Failed {
        try {
            T value = MAPPER.treeToValue(json, type);
            if (value != null) {
                return value;
            }
        } catch (JsonProcessingException | IllegalArgumentException e) {
            // told below: whatever the details are, the answer has another form
        }
        throw stranger("its JSON has another form");
    }

    private JsonNode get(String path, int timeoutSeconds) throws Failed {
        return ask(path, timeoutSeconds).json;
    }

    private Answer ask(String path, int timeoutSeconds) throws Failed {
        try {
            return await(Background.start("lumetra-client", () -> fetch(page.resolve(path), timeoutSeconds)));
        } catch (TimeoutException e) {
            throw endless(wholePatience);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw Failed.forAll("interrupted");
        } catch (ExecutionException e) {
            throw unanswered(e.getCause());
        }
    }

    /** Says that it waits, to whoever is watching, when an answer takes longer than a moment. */
    private Answer await(Future<Answer> task)
            throws InterruptedException, ExecutionException, TimeoutException {
        try {
            return task.get(1, TimeUnit.SECONDS);
        } catch (TimeoutException e) {
            boolean shown = Terminal.ofThisProcess().showsErrors();
            System.err.print(shown ? "waiting for " + Words.printable(page.toString()) + " ..." : "");
            try {
                return task.get(wholePatience - 1, TimeUnit.SECONDS);
            } finally {
                System.err.print(shown ? Terminal.CLEARED_LINE : "");
            }
        }
    }

    private Failed unanswered(Throwable cause) {
        if (cause instanceof Failed known) {
            return known;
        }
        if (cause instanceof OutOfMemoryError) {
            return stranger("its answer is too large");
        }
        return absent(cause instanceof UnknownHostException ? "no machine has this name"
                : Objects.requireNonNullElse(cause.getMessage(), cause.toString()));
    }

    private Failed absent(String why) {
        return Failed.forAll("no agent answers at " + page + ": " + why
                + "; start it with " + System.getProperty("lumetra.start", "./run-agent"));
    }

    private Failed silent(int seconds) {
        return absent("no answer within " + seconds + " s");
    }

    private Failed endless(int seconds) {
        return stranger("its answer has no end after " + seconds + " s");
    }

    private Failed stranger(String why) {
        return Failed.once("what answers at " + page + " is no Lumetra Agent: " + why);
    }

    private Answer fetch(URI address, int timeoutSeconds) throws IOException, Failed {
        HttpURLConnection question = (HttpURLConnection) address.toURL().openConnection();
        question.setConnectTimeout(1000 * patience);
        question.setReadTimeout(1000 * timeoutSeconds);
        question.setInstanceFollowRedirects(false);
        question.setRequestProperty("Accept", "application/json");
        int status = statusOf(question, timeoutSeconds);
        try (InputStream body = status < HttpURLConnection.HTTP_BAD_REQUEST
                ? question.getInputStream() : question.getErrorStream()) {
            if (status != HttpURLConnection.HTTP_OK) {
                throw refused(status, body);
            }
            if (!Objects.requireNonNullElse(question.getContentType(), "").startsWith("application/json")) {
                throw stranger("its answer is no JSON");
            }
            return new Answer(parse(read(body)), date(question.getHeaderField("Date")));
        } catch (SocketTimeoutException e) {
            throw endless(timeoutSeconds);
        }
    }

    /** Asks; the status of the answer. */
    private int statusOf(HttpURLConnection question, int timeoutSeconds) throws IOException, Failed {
        try {
            question.connect();
        } catch (SocketTimeoutException e) {
            throw silent(patience);
        }
        try {
            int status = question.getResponseCode();
            if (status < 0) {
                throw stranger("it does not speak HTTP");
            }
            return status;
        } catch (SocketTimeoutException e) {
            throw silent(timeoutSeconds);
        }
    }

    /** When an answer was sent; without a date that can be read, by the clock here. */
    private static Instant date(String sent) {
        try {
            return Optional.ofNullable(sent).map(DateTimeFormatter.RFC_1123_DATE_TIME::parse).map(Instant::from)
                    .orElseGet(Instant::now);
        } catch (DateTimeException e) {
            return Instant.now();
        }
    }

    /** What a status other than that of success means. The body may be missing. */
    private Failed refused(int status, InputStream body) {
        try {
            byte[] bytes = body == null ? new byte[0] : body.readNBytes(LARGEST_ERROR);
            JsonNode error = MAPPER.readTree(bytes).path("error").path("message");
            if (error.isTextual()) {
                return Failed.once("the agent at " + page + " refuses: " + error.textValue());
            }
        } catch (IOException e) {
            // an error without an explanation
        }
        return stranger("it answers with status " + status);
    }

    private byte[] read(InputStream in) throws IOException, Failed {
        byte[] bytes = in.readNBytes(LARGEST_ANSWER + 1);
        if (bytes.length > LARGEST_ANSWER) {
            throw stranger("its answer is longer than " + (LARGEST_ANSWER >> 20) + " MiB");
        }
        return bytes;
    }

    private JsonNode parse(byte[] bytes) throws IOException, Failed {
        try {
            JsonNode json = MAPPER.readTree(bytes);
            if (json != null && json.isObject()) {
                return json;
            }
        } catch (JsonProcessingException e) {
            // told below
        }
        throw stranger("its answer is no JSON object");
    }
}
