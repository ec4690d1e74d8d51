package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.client.AgentAddress;
import com.quorin.sysmgt.tavl.LumetraAgent.client.WholeNumber;
import com.quorin.sysmgt.tavl.LumetraAgent.http.HostCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebServer;
import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.AgentView;
import java.io.IOException;
import java.io.PrintStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.UnknownHostException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.regex.Pattern;
import picocli.CommandLine.ITypeConverter;
import picocli.CommandLine.Option;
import picocli.CommandLine.TypeConversionException;

/** Where the page is, and who may ask for it. */
final class PageOptions {

    private static final Pattern NAME = Pattern.compile("[A-Za-z0-9_]([A-Za-z0-9._-]{0,251}[A-Za-z0-9_.])?");
    private static final Path OWN_NAME = Path.of("/proc/sys/kernel/hostname");

    /** The port of a page, or 0. */
    static final class Port extends WholeNumber {
        Port() {
            super("a port from 0 to " + AgentAddress.LARGEST_PORT, 0, AgentAddress.LARGEST_PORT);
        }
    }

    /** An address, or a name that only this machine can make one of. */
    static final class Address implements ITypeConverter<String> {

        @Override
        public String convert(String text) {
            if (text.isBlank()) {
                throw new TypeConversionException("expected an IP address or a name of this machine");
            }
            return text;
        }
    }

    /** The name of a machine. */
    static final class Name implements ITypeConverter<String> {

        @Override
        public String convert(String text) {
            if (!NAME.matcher(text).matches()) {
                throw new TypeConversionException(
                        "expected the name of a machine, without port, got \"" + text + "\"");
            }
            return text;
        }
    }

    @Option(names = "--port", paramLabel = "N", defaultValue = "" + AgentAddress.DEFAULT_PORT, converter = Port.class,
            description = "The page's port, 1 to 65535; 0 for no page. Default: ${DEFAULT-VALUE}.")
    private int port;

    @Option(names = "--listen", paramLabel = "ADDRESS", defaultValue = "127.0.0.1", converter = Address.class,
            description = "The address that the page listens on, an IP address or a name of this machine. "
                    + "Whoever reaches it can read the page. Default: ${DEFAULT-VALUE}.")
    private String listen;

    @Option(names = "--allow-host", paramLabel = "NAME", converter = Name.class,
            description = "Another name under which a browser may ask for the page. Repeatable. "
                    + "IP addresses, localhost and the name after --listen are always allowed.")
    private List<String> allowed = new ArrayList<>();

    private volatile String url = "";

    /** Whether there is to be a page: not with port 0. */
    boolean isWanted() {
        return port != 0;
    }

    /** Where the page is; empty as long as it is not open. */
    String url() {
        return url;
    }

    /** Starts the page, and says where it is or why it is not there; empty when it cannot listen. */
    Optional<WebServer> open(AgentView view, PrintStream out) {
        try {
            InetAddress address = InetAddress.getByName(listen);
            WebServer server = WebServer.start(new InetSocketAddress(address, port), AgentRoutes.of(view),
                    new HostCheck(names(address)), System.err);
            url = "http://" + inUrl(address) + "/";
            out.println("The page is at " + url
                    + (address.isLoopbackAddress() ? "" : ", for everyone who can reach this address"));
            return Optional.of(server);
        } catch (IOException | RuntimeException e) {
            out.println("The page is not available: cannot listen on " + Words.printable(listen) + ":" + port
                    + " (" + reason(e) + "); --port names another port, --listen another address.");
            return Optional.empty();
        }
    }

    private String inUrl(InetAddress address) {
        String own = address.isAnyLocalAddress() ? ownName() : "";
        if (!own.isEmpty()) {
            return own + ":" + port;
        }
        boolean asGiven = listen.matches("[0-9A-Fa-f:.]*:[0-9A-Fa-f:.]*");
        return asGiven ? "[" + listen + "]:" + port : WebServer.inUrl(new InetSocketAddress(address, port));
    }

    private List<String> names(InetAddress address) {
        List<String> names = new ArrayList<>(allowed);
        names.add(listen);
        if (!address.isLoopbackAddress() && !ownName().isEmpty()) {
            names.add(ownName());
            names.add(ownName().split("\\.")[0]);
        }
        return names;
    }

    /** The machine's own name, without asking any name server; empty for one that is no name. */
    static String ownName() {
        String name = FileText.read(OWN_NAME).map(String::strip).orElse("");
        return NAME.matcher(name).matches() ? name : "";
    }

    private static String reason(Exception e) {
        if (e instanceof UnknownHostException) {
            return "this machine knows no such name";
        }
        return Words.printable(e.getMessage() == null ? e.toString() : e.getMessage());
    }
}
