package com.quorin.sysmgt.tavl.LumetraAgent;

import java.net.URI;
import java.net.URISyntaxException;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;

/** The options that say which agent is asked. */
final class AgentAddress {

    @ArgGroup(exclusive = true, multiplicity = "0..1")
    private Where where = new Where();

    /** One of the two ways to say it. */
    static final class Where {
        @Option(names = "--url", paramLabel = "URL",
                description = "The agent's page. Default: http://127.0.0.1:" + PageOptions.DEFAULT_PORT
                        + "/.")
        private String url;

        @Option(names = "--port", paramLabel = "N", description = "The port of an agent on this machine.")
        private Integer port;

        /** Creates the default options. */
        Where() {
            // picocli fills in the options
        }
    }

    /** Creates the default options. */
    AgentAddress() {
        // picocli fills in the options
    }

    private static boolean isWeb(String scheme) {
        return "http".equalsIgnoreCase(scheme) || "https".equalsIgnoreCase(scheme);
    }

    /**
     * The address of the page.
     *
     * @param spec the command that the options were given to
     * @return the address, ending with a slash
     */
    URI uri(CommandSpec spec) {
        if (where.url == null) {
            int port = where.port == null ? PageOptions.DEFAULT_PORT : where.port;
            PageOptions.checkPort(spec, "--port", port, 1);
            return URI.create("http://127.0.0.1:" + port + "/");
        }
        try {
            URI uri = new URI(where.url.endsWith("/") ? where.url : where.url + "/");
            if (isWeb(uri.getScheme()) && uri.getHost() != null && uri.getUserInfo() == null
                    && uri.getRawQuery() == null && uri.getRawFragment() == null) {
                return uri;
            }
        } catch (URISyntaxException e) {
            // told below, like any other text that is no address
        }
        throw new ParameterException(spec.commandLine(),
                "Invalid value for option '--url': expected http://HOST:PORT/, got \"" + where.url + "\"");
    }
}
