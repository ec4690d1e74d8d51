package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.io.UncheckedIOException;
import java.util.HexFormat;
import java.util.zip.CRC32C;
import java.util.zip.Checksum;
import java.util.zip.Deflater;
import java.util.zip.GZIPInputStream;
import java.util.zip.GZIPOutputStream;

/**
 * What the web server sends for one path: finished bytes, made once and sent to every client. They are kept
 * compressed, as most clients want them: those of thousands of resources are megabytes otherwise. Any thread may call.
 */
public final class WebContent {

    /** Content type of the JSON interface. */
    public static final String JSON = "application/json; charset=utf-8";

    /** What is no larger gains nothing from compression. */
    static final int LARGEST_PLAIN = 1024;

    /** Writes the content from its beginning to its end. */
    public interface Source {
        void writeTo(OutputStream out) throws IOException;
    }

    /** Compresses with the least work, which a fifth more bytes pay, and keeps count of what came in. */
    private static final class Zip extends GZIPOutputStream {
        private static final int BUFFER = 8 * 1024;

        private final Checksum check = new CRC32C();
        private int size;

        Zip(OutputStream out) throws IOException {
            super(out, BUFFER);
            def.setLevel(Deflater.BEST_SPEED);
        }

        @Override
        public synchronized void write(byte[] bytes, int from, int count) throws IOException {
            super.write(bytes, from, count);
            check.update(bytes, from, count);
            size += count;
        }

        /** Two checks and the length: a digest that nobody can forge costs more than all else of a large answer. */
        String fingerprint() {
            HexFormat hex = HexFormat.of();
            return hex.toHexDigits(crc.getValue() << Integer.SIZE | check.getValue()) + hex.toHexDigits((long) size);
        }
    }

    private final String type;
    private final boolean isNegotiated;
    private final byte[] zipped;
    private final byte[] plain;
    private final int size;
    private final String tag;

    public WebContent(String type, byte[] bytes) {
        this(type, false, out -> out.write(bytes));
    }

    private WebContent(String type, boolean isNegotiated, Source source) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        try (Zip zip = new Zip(out)) {
            source.writeTo(zip);
            zip.finish();
            tag = zip.fingerprint();
            size = zip.size;
        } catch (IOException e) {
            throw new UncheckedIOException("an answer cannot be written", e);
        }
        this.type = type;
        this.isNegotiated = isNegotiated;
        zipped = out.toByteArray();
        plain = isCompressible() ? null : bytes(false); // is sent without taking memory
    }

    /** Content that is written here and now. */
    public static WebContent of(String type, Source source) {
        return new WebContent(type, false, source);
    }

    /** Content whose form depends on what the client accepts, written here and now. */
    public static WebContent negotiated(String type, Source source) {
        return new WebContent(type, true, source);
    }

    public String type() {
        return type;
    }

    /** The size of the uncompressed form in bytes. */
    public int size() {
        return size;
    }

    /** Whether the compressed form is worth its sending: above {@value #LARGEST_PLAIN} bytes. */
    boolean isCompressible() {
        return size > LARGEST_PLAIN;
    }

    /** The value of the header that tells which headers of a request decide what is sent; empty for none. */
    String vary() {
        if (isNegotiated) {
            return "Accept, Accept-Encoding";
        }
        return isCompressible() ? "Accept-Encoding" : "";
    }

    /** How many bytes one of the two forms has. */
    int length(boolean isZipped) {
        return isZipped ? zipped.length : size;
    }

    /** The bytes of one of the two forms. */
    InputStream open(boolean isZipped) throws IOException {
        if (plain != null && !isZipped) {
            return new ByteArrayInputStream(plain);
        }
        InputStream in = new ByteArrayInputStream(zipped);
        return isZipped ? in : new GZIPInputStream(in);
    }

    /** The bytes of one of the two forms, all at once. */
    public byte[] bytes(boolean isZipped) {
        try (InputStream in = open(isZipped)) {
            return in.readAllBytes();
        } catch (IOException e) {
            throw new UncheckedIOException("an array cannot fail", e);
        }
    }

    /** The entity tag, quotation marks included; the two forms have different bytes and so different tags. */
    public String etag(boolean isZipped) {
        return '"' + tag + (isZipped ? "-gzip\"" : "\"");
    }

    /**
     * Whether a client's If-None-Match names this content, in either form.
     *
     * @param header empty for none
     */
    boolean isKnownTo(String header) {
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
