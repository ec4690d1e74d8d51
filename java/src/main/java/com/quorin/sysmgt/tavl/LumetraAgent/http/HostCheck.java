package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.util.Collection;
import java.util.List;
import java.util.Locale;
import java.util.Set;
import java.util.TreeSet;
import java.util.regex.Pattern;

/**
 * Which values of the Host header mean this machine. Someone else's page can make a name of its own point at
 * this machine and then read the answers; the Host header still gives that name away.
 */
public final class HostCheck {

    private static final Pattern PORT = Pattern.compile("\\d{1,5}");
    private static final Pattern IPV4 = Pattern.compile("\\d{1,3}(\\.\\d{1,3}){3}");
    private static final Pattern IPV6 = Pattern.compile("[0-9a-f:.]*:[0-9a-f:.]*");
    private static final int LARGEST_PORT = 65535;

    private final Set<String> names = new TreeSet<>();

    /**
     * "localhost" and all IP addresses are always allowed.
     *
     * @param more further names of this machine
     */
    public HostCheck(Collection<String> more) {
        names.add("localhost");
        more.forEach(name -> names.add(plain(name)));
    }

    /** Whether a request may be answered: it has exactly one Host header, and this means this machine. */
    boolean allows(List<String> headers) {
        if (headers.size() != 1) {
            return false;
        }
        String host = headers.get(0);
        int end = host.startsWith("[") ? host.indexOf(']') + 1 : host.indexOf(':');
        if (end < 0) {
            return allowsName(host);
        }
        String rest = host.substring(end);
        return end > 0 && (rest.isEmpty() || isPort(rest)) && allowsName(host.substring(0, end));
    }

    private static boolean isPort(String text) {
        return text.startsWith(":") && PORT.matcher(text.substring(1)).matches()
                && Integer.parseInt(text.substring(1)) <= LARGEST_PORT;
    }

    private boolean allowsName(String name) {
        String plain = plain(name);
        if (plain.startsWith("[") && plain.endsWith("]")) {
            return IPV6.matcher(plain.substring(1, plain.length() - 1)).matches();
        }
        return IPV4.matcher(plain).matches() || names.contains(plain);
    }

    /** A name in lower case, without the dot that ends a full one. */
    private static String plain(String name) {
        String lower = name.toLowerCase(Locale.ROOT);
        return lower.endsWith(".") && lower.length() > 1 ? lower.substring(0, lower.length() - 1) : lower;
    }
}
