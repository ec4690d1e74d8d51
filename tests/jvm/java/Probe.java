import com.quorin.sysmgt.tavl.LumetraAgent.ExecPrediction;
import com.quorin.sysmgt.tavl.LumetraAgent.LumetraSubagent;
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.nio.charset.StandardCharsets;

/**
 * A bare host of the library, driven by lines on standard input. Every answer and every event is one line, fields
 * separated by tabs.
 *
 * <pre>
 * run COUNT CONFIG   starts research_main on a new thread; "returned N" when it has ended
 * wait               waits until the last started run has ended
 * stop               sends a stop request; "stopped N"
 * mode MODE          what sendEvent does from now on: accept, refuse, throw
 * hog                fills the Java heap, keeps it full for a while and frees it; "unhogged"
 * exit N             System.exit(N)
 * </pre>
 */
public final class Probe {
    private static final ExecPrediction AGENT = new ExecPrediction();
    private static final LumetraSubagent SUBAGENT = new LumetraSubagent();
    private static volatile Held hogged;

    /** The events side: the six methods that the library looks for. */
    public static final class Events {
        static volatile String mode = "accept";

        private static boolean answer(String kind, Object... arguments) {
            StringBuilder line = new StringBuilder(kind);
            for (Object argument : arguments) {
                line.append('\t').append(argument);
            }
            tell(line.toString());
            if (mode.equals("throw")) {
                throw new IllegalStateException("the events side was told to throw");
            }
            return mode.equals("accept");
        }

        public static boolean sendEvent(String time, double seconds, String name, String instance, String culprit) {
            return answer("event", time, name, seconds, instance, culprit);
        }

        public static boolean sendUpperToleranceEvent(String name, String instance, double limit) {
            return answer("upper", name, instance, limit);
        }

        public static boolean sendInnerToleranceEvent(String name, String instance, double limit) {
            return answer("inner", name, instance, limit);
        }

        public static int getOs_support() {
            return 1;
        }

        public static long getPrev_time() {
            return 0;
        }

        public static double getPrev_tte() {
            return 0.0;
        }
    }

    private static synchronized void tell(String line) {
        System.out.println(line);
        System.out.flush();
    }

    /** A chain of memory: unlike a list it needs no bigger block to grow. */
    private record Held(Held next, byte[] block) {}

    private static void hog() {
        for (int size = 1 << 20; size >= 1; size /= 4) {
            try {
                while (true) {
                    hogged = new Held(hogged, new byte[size]);
                }
            } catch (OutOfMemoryError full) {
                // smaller pieces next
            }
        }
    }

    public static void main(String[] arguments) throws Exception {
        System.load(arguments[0]);
        BufferedReader input = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8));
        Thread run = null;
        tell("ready");
        for (String line = input.readLine(); line != null; line = input.readLine()) {
            String[] words = line.split(" ", 3);
            switch (words[0]) {
                case "run" -> {
                    int count = Integer.parseInt(words[1]);
                    String config = words[2];
                    run = new Thread(() -> tell("returned\t"
                            + AGENT.research_main(new Events(), count, "Probe", config)), "agent");
                    run.start();
                }
                case "wait" -> run.join();
                case "stop" -> tell("stopped\t" + SUBAGENT.javaThreadSyncPleaseStop());
                case "mode" -> Events.mode = words[1];
                case "hog" -> {
                    hog();
                    Thread.sleep(2500);
                    hogged = null; // makes no object
                    tell("unhogged");
                }
                case "exit" -> System.exit(Integer.parseInt(words[1]));
                default -> tell("unknown\t" + line);
            }
        }
    }
}
