package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.HexFormat;
import java.util.zip.GZIPOutputStream;

/**
 * What the web server sends for one path: finished bytes, made once and sent to every client. Any thread may
 * call.
 */
public final class WebContent {

    /** Content type of the JSON interface. */
    public static final String JSON = "application/json; charset=utf-8";

    /** What is no larger gains nothing from compression. */
    static final int LARGEST_PLAIN = 1024;

    private static final int TAG_BYTES = 16;

    private final String type;
    private final byte[] bytes;
    private final String tag;
    private final boolean isNegotiated;
    private volatile byte[] compressed;

    /** Takes the content over; the array must not change any more. */
    public WebContent(String type, byte[] bytes) {
        this(type, bytes, false);
    }

    private WebContent(String type, byte[] bytes, boolean isNegotiated) {
        this.isNegotiated = isNegotiated;
        this.type = type;
        this.bytes = bytes;
        this.tag = fingerprint(bytes);
    }

    /** Content whose form depends on what the client accepts. */
    public static WebContent negotiated(String type, byte[] bytes) {
        return new WebContent(type, bytes, true);
    }

    private static String fingerprint(byte[] bytes) {
        try {
            byte[] digest = MessageDigest.getInstance("SHA-256").digest(bytes);
            return HexFormat.of().formatHex(digest, 0, TAG_BYTES);
        } catch (NoSuchAlgorithmException e) {
            throw new IllegalStateException("every Java platform has SHA-256", e);
        }
    }

    public String type() {
        return type;
    }

    /** The size of the uncompressed form in bytes. */
    public int size() {
        return bytes.length;
    }

    /** Whether a compressed form is worth its sending: above {@value #LARGEST_PLAIN} bytes. */
    boolean isCompressible() {
        return bytes.length > LARGEST_PLAIN;
    }

    /** The value of the header that tells which headers of a request decide what is sent; empty for none. */
    String vary() {
        if (isNegotiated) {
            return "Accept, Accept-Encoding";
        }
        return isCompressible() ? "Accept-Encoding" : "";
    }

    /** The bytes to send, compressed if that is asked for. */
    public byte[] bytes(boolean zipped) {
        if (!zipped) {
            return bytes;
        }
        byte[] result = compressed;
        if (result == null) {
            result = compress(bytes); // two threads at once make the same bytes
            compressed = result;
        }
        return result;
    }

    private static byte[] compress(byte[] bytes) {
        ByteArrayOutputStream out = new ByteArrayOutputStream(bytes.length / 4);
        try (GZIPOutputStream zip = new GZIPOutputStream(out)) {
            zip.write(bytes);
        } catch (IOException e) {
            throw new UncheckedIOException("an array cannot fail", e);
        }
        return out.toByteArray();
    }

    /** The entity tag, quotation marks included; the two forms have different bytes and so different tags. */
    public String etag(boolean zipped) {
        return '"' + tag + (zipped ? "-gzip\"" : "\"");
    }

    /**
     * Whether a client's If-None-Match names this content, in either form.
     *
     * @param header null for none
     */
    boolean isKnownTo(String header) {
        if (header == null) {
            return false;
        }
        for (String part : header.split(",")) {
            String candidate = part.strip();
            if (candidate.startsWith("W/")) {
                candidate = candidate.substring(2);
            }
            if (candidate.equals("*") || candidate.equals(etag(false)) || candidate.equals(etag(true))) {
                return true;
            }
        }
        return false;
    }
}
