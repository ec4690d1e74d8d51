import com.sun.net.httpserver.HttpServer;
import java.io.File;
import java.io.InputStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.util.Collections;
import java.util.jar.JarFile;

/**
 * Loads what the host's commands load and ends by running one, so that Java, told to write an archive of classes at its end
 * (-XX:ArchiveClassesAtExit), has all of it there: the machines of the tests then start in two thirds of the time.
 * Arguments: the host's jar.
 */
public final class LoadClasses {

    private LoadClasses() {
    }

    public static void main(String[] args) throws Exception {
        try (JarFile jar = new JarFile(new File(args[0]))) {
            String main = jar.getManifest().getMainAttributes().getValue("Main-Class");
            for (var entry : Collections.list(jar.entries())) {
                if (entry.getName().endsWith(".class")) {
                    link(entry.getName().replace('/', '.').replaceAll("\\.class$", ""));
                }
            }
            int port = serveOnce();
            Class.forName(main).getMethod("main", String[].class).invoke(null, (Object) new String[] {"status", "--port", "" + port});
        }
    }

    /** Without running what it runs when it is first used, which may want the native library. */
    private static void link(String name) throws ClassNotFoundException {
        Class.forName(name, false, LoadClasses.class.getClassLoader()).getDeclaredMethods();
    }

    private static int serveOnce() throws Exception {
        HttpServer server = HttpServer.create(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), 0);
        server.createContext("/", exchange -> {
            try (InputStream asked = exchange.getRequestBody()) {
                asked.readAllBytes();
            }
            exchange.sendResponseHeaders(503, -1);
            exchange.close();
        });
        server.start();
        return server.getAddress().getPort();
    }
}
