package com.quorin.sysmgt.tavl.LumetraAgent.client;

import java.net.URI;
import java.net.URISyntaxException;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.ITypeConverter;
import picocli.CommandLine.Option;
import picocli.CommandLine.TypeConversionException;

/** The options that say which agent is asked. */
public final class AgentAddress {

    /** The port unless another is named. */
    public static final int DEFAULT_PORT = 8642;

    /** The largest port that there is. */
    public static final int LARGEST_PORT = 65535;

    /** One of the two ways to say it. */
    static final class Where {
        @Option(names = "--url", paramLabel = "URL", converter = PageUrl.class,
                description = "The agent's page. Default: http://127.0.0.1:" + DEFAULT_PORT
                        + "/.")
        private URI url;

        @Option(names = "--port", paramLabel = "N", converter = Port.class,
                description = "The port of an agent on this machine.")
        private int port = DEFAULT_PORT;
    }

    /** The port of a page that there is. */
    static final class Port extends WholeNumber {
        Port() {
            super("a port from 1 to " + LARGEST_PORT, 1, LARGEST_PORT);
        }
    }

    /** The address of a page, which gets the slash that it must end with. */
    static final class PageUrl implements ITypeConverter<URI> {

        @Override
        public URI convert(String text) {
            try {
                URI uri = new URI(text.endsWith("/") ? text : text + "/");
                if (isWeb(uri.getScheme()) && uri.getHost() != null && uri.getPort() <= LARGEST_PORT
                        && uri.getUserInfo() == null && uri.getRawQuery() == null && uri.getRawFragment() == null) {
                    return uri;
                }
            } catch (URISyntaxException e) {
                // told below, like any other text that is no address
            }
            throw new TypeConversionException("expected http://HOST:PORT/, got \"" + text + "\"");
        }

        private static boolean isWeb(String scheme) {
            return "http".equalsIgnoreCase(scheme) || "https".equalsIgnoreCase(scheme);
        }
    }

    @ArgGroup(exclusive = true, multiplicity = "0..1")
    private Where where = new Where();

    /** The address of the page, ending with a slash. */
    URI uri() {
        return where.url != null ? where.url : URI.create("http://127.0.0.1:" + where.port + "/");
    }
}
