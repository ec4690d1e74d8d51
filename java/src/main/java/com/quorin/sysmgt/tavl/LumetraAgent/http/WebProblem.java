package com.quorin.sysmgt.tavl.LumetraAgent.http;

import com.fasterxml.jackson.databind.node.JsonNodeFactory;
import com.fasterxml.jackson.databind.node.ObjectNode;
import java.nio.charset.StandardCharsets;

/** A request that is answered with an error; the message is for the client and names what was expected. */
public final class WebProblem extends Exception {
    private static final long serialVersionUID = 1L;

    private final int status;

    /**
     * An answer.
     *
     * @param status  400 to 599
     * @param message one sentence
     */
    public WebProblem(int status, String message) {
        super(message, null, false, false);
        this.status = status;
    }

    /** The answer to a request beyond the bounds. */
    static WebProblem tooLarge() {
        return new WebProblem(431, "A request may have 64 headers, and 16 KiB together.");
    }

    public int status() {
        return status;
    }

    /** The answer that tells of it, in JSON. */
    public WebContent content() {
        ObjectNode json = JsonNodeFactory.instance.objectNode();
        json.putObject("error").put("status", status).put("message", getMessage());
        return new WebContent(WebContent.JSON, json.toString().getBytes(StandardCharsets.UTF_8));
    }
}
