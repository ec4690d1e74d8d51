package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class HostCheckTest {

    private final HostCheck check = new HostCheck(List.of("Box.Example", "10.0.0.9"));

    @ParameterizedTest
    @ValueSource(strings = {"localhost", "LOCALHOST:8642", "localhost.", "localhost.:1", "127.0.0.1",
        "127.0.0.1:8642", "192.168.1.2:65535", "[::1]", "[::1]:8642", "[fe80::1]:1", "[::ffff:127.0.0.1]",
        "box.example", "BOX.example:80", "box.example."})
    void thisMachine(String host) {
        assertEquals(true, check.allows(List.of(host)), host);
    }

    @ParameterizedTest
    @ValueSource(strings = {"", " ", ":", ":80", "evil.example", "evil.example:8642",
        "localhost.evil.example", "evil.localhost",
        "127.0.0.1.evil.example", "box", "localhost:", "localhost:http", "localhost:65536",
        "localhost:123456", "localhost:80:80", "localhost:-1", "localhost,evil", " localhost", "localhost ",
        "[::1", "::1", "[::1]x", "[::1]:", "[evil.example]", "[]", "[:1]evil:80", "user@localhost",
        "127.0.0.1/", "1.2.3", "1.2.3.4.5", "0x7f.0.0.1", "127.1", "\u0661.1.1.1",
        "localhost\u0000", ".", "localhost.."})
    void someoneElse(String host) {
        assertEquals(false, check.allows(List.of(host)), host);
    }

    @Test
    void exactlyOneHeader() {
        assertFalse(check.allows(List.of()));
        assertFalse(check.allows(List.of("localhost", "localhost")));
    }
}
