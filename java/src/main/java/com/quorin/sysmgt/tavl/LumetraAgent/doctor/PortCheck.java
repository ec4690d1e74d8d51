package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import com.quorin.sysmgt.tavl.LumetraAgent.client.RunningAgent;
import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.nio.file.Path;
import java.util.Optional;

/** Whether the page's port is free, or whose it is. */
final class PortCheck {

    private PortCheck() {}

    static Symptom of(int port, Path home) {
        if (isFree(port)) {
            return Symptom.ok(Subject.PORT, "port " + port + " is free");
        }
        Optional<String> other = RunningAgent.homeAt(port);
        if (other.isEmpty()) {
            return new Symptom(Subject.PORT, Severity.WARNING, "another program than an agent has port " + port
                    + ", so there would be no page",
                    "Name another one with --port, for the service in agent.env; ss -ltnp tells who has this.");
        }
        if (other.get().equals(home.toString())) {
            return Symptom.ok(Subject.PORT, "the home's agent answers at port " + port);
        }
        return new Symptom(Subject.PORT, Severity.WARNING, "the agent of the home " + other.get() + " has port " + port,
                "Name another port for a second agent with --port.");
    }

    private static boolean isFree(int port) {
        try (ServerSocket socket = new ServerSocket()) {
            socket.bind(new InetSocketAddress(InetAddress.getLoopbackAddress(), port));
            return true;
        } catch (IOException e) {
            return false;
        }
    }
}
