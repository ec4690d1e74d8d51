package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.io.IOException;
import java.io.OutputStream;
import java.net.InetSocketAddress;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.util.List;

/**
 * Asks a server of this process for what others will ask it for. A class whose initialization fails for want of
 * memory is lost for as long as the process lives: so all that answers need is there before memory is short.
 */
public final class Rehearsal {

    private static final int PATIENCE_MILLISECONDS = 5000;

    private Rehearsal() {}

    /** Waits for each answer, but not for long; what fails now will be told when somebody else asks. */
    public static void of(InetSocketAddress server, List<String> paths) {
        for (String path : paths) {
            try (Socket socket = new Socket()) {
                socket.connect(server, PATIENCE_MILLISECONDS);
                socket.setSoTimeout(PATIENCE_MILLISECONDS);
                socket.getOutputStream().write(("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n"
                        + "Accept-Encoding: gzip\r\nConnection: close\r\n\r\n").getBytes(StandardCharsets.US_ASCII));
                socket.getInputStream().transferTo(OutputStream.nullOutputStream());
            } catch (IOException | OutOfMemoryError e) {
                // the agent does its work without it
            }
        }
    }
}
