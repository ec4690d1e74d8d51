import com.quorin.sysmgt.tavl.LumetraAgent.ExecPrediction;
import com.quorin.sysmgt.tavl.LumetraAgent.LumetraSubagent;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.Random;
import java.util.Set;
import java.util.TreeMap;
import java.util.concurrent.ConcurrentSkipListMap;
import java.util.concurrent.atomic.AtomicLong;

/**
 * A bare host of the library, driven by lines on standard input. Every answer and every event is one line, fields
 * separated by tabs.
 *
 * <pre>
 * run COUNT CONFIG   starts research_main on a new thread; "returned N" when it has ended
 * wait               waits until the last started run has ended
 * stop               sends a stop request; "stopped N"
 * mode MODE          what sendEvent does from now on: accept, refuse, throw
 * hog                fills the Java heap, keeps it full until the next line comes, and frees it; "unhogged"
 * exit N             System.exit(N)
 *
 * descriptors                   one call of a trend viewer method: "append METHOD VALUE" for each value it is given,
 * label NAME INSTANCE           then "result N", or "thrown EXCEPTION"
 * limit NAME INSTANCE
 * pairs KIND NAME INSTANCE
 * unlock
 * elsewhere CALL                one of these calls on a thread of its own, which then unlocks
 * throw N                       the N-th append from now on throws
 * objects KIND                  what later calls are given: values, null, bare (without methods), foreign (two classes)
 * viewers COUNT                 starts threads that read all the time; "wrong WHAT" for each answer that is not as it
 *                               should be
 * keep                          lets one of them take the lock and keep it; "kept" when it has it
 * unkeep                        ends that
 * answers                       "viewer METHOD RESULT COUNT" for each result they were given so far; "answered"
 * unview                        ends them; the same, then "unviewed"
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

    /** What the trend viewer's methods hand their values to. */
    public static class Values {
        static volatile int appendsUntilThrow;

        /** What came in, "METHOD VALUE" each. */
        final List<String[]> given = new ArrayList<>();

        private void take(String method, Object value) {
            if (appendsUntilThrow > 0 && --appendsUntilThrow == 0) {
                throw new IllegalStateException("this append was told to throw");
            }
            given.add(new String[] {method, String.valueOf(value)});
        }

        public void AppendCompUnicode(String text) {
            take("AppendCompUnicode", text);
        }

        public void AppendInt(int number) {
            take("AppendInt", number);
        }

        public void AppendFloat(float number) {
            take("AppendFloat", number);
        }
    }

    /** The trend viewer's methods, which only their own package may name. */
    private static final class Natives {
        private static final Map<String, Method> METHODS = new TreeMap<>();

        static {
            for (Method method : LumetraSubagent.class.getDeclaredMethods()) {
                method.setAccessible(true);
                METHODS.put(method.getName(), method);
            }
        }

        private static int call(String name, Object... arguments) throws Throwable {
            try {
                return (int) METHODS.get(name).invoke(SUBAGENT, arguments);
            } catch (InvocationTargetException thrown) {
                throw thrown.getCause();
            }
        }

        static int descriptors(Object list) throws Throwable {
            return call("trendViewerGetDescriptors", list);
        }

        static int label(String name, String instance, Object intOut, Object textOut, Object floatOut)
                throws Throwable {
            return call("trendViewerLockAndGetTimeStampLabel", name, instance, intOut, textOut, floatOut);
        }

        static int limit(String name, String instance, Object intOut) throws Throwable {
            return call("trendViewerGetLimit", name, instance, intOut);
        }

        static int pairs(String name, String instance, String kind, Object list) throws Throwable {
            return call("trendViewerGetXYPairs", name, instance, kind, list);
        }

        static int unlock() throws Throwable {
            return call("trendViewerUnlockFiles");
        }
    }

    /** One call as a command says; what came of it is told. */
    private static void view(String[] words, String objects) {
        Values values = new Values();
        Object out = switch (objects) {
            case "null" -> null;
            case "bare" -> new Object();
            default -> values;
        };
        Object floatOut = objects.equals("foreign") ? new Object() : out;
        String answer;
        try {
            answer = "result\t" + switch (words[0]) {
                case "descriptors" -> Natives.descriptors(out);
                case "label" -> Natives.label(words[1], words[2], out, out, floatOut);
                case "limit" -> Natives.limit(words[1], words[2], out);
                case "pairs" -> Natives.pairs(words[2], words[3], words[1], out);
                case "unlock" -> Natives.unlock();
                default -> throw new IllegalArgumentException(String.join(" ", words));
            };
        } catch (Throwable thrown) {
            answer = "thrown\t" + thrown;
        }
        for (String[] given : values.given) {
            tell("append\t" + given[0] + "\t" + given[1]);
        }
        tell(answer);
    }

    private static void viewElsewhere(String[] words, String objects) throws InterruptedException {
        Thread other = new Thread(() -> {
            view(words, objects);
            try {
                Natives.unlock();
            } catch (Throwable thrown) {
                tell("wrong\t" + thrown);
            }
        });
        other.start();
        other.join();
    }

    /** A thread that reads all the time and checks what it is given against what the methods and files promise. */
    private static final class Viewer extends Thread {
        private static final Map<String, AtomicLong> RESULTS = new ConcurrentSkipListMap<>();
        private static final int FORECAST_TOKENS = 400; // 200 points, always
        private static volatile boolean ended;
        private static volatile boolean keeps;

        private final boolean isKeeper;
        private final Random random;
        private Values values = new Values();

        Viewer(int number) {
            super("viewer " + number);
            this.isKeeper = number == 0;
            this.random = new Random(number);
        }

        @Override
        public void run() {
            try {
                while (!ended) {
                    look();
                    sleep(random.nextInt(10));
                }
            } catch (Throwable thrown) {
                tell("wrong\t" + thrown);
            }
        }

        private static void count(String method, Object result) {
            RESULTS.computeIfAbsent(method + "\t" + result, key -> new AtomicLong()).incrementAndGet();
        }

        private static void check(boolean fine, String what) {
            if (!fine) {
                tell("wrong\t" + what);
            }
        }

        private Values fresh() {
            values = new Values();
            return values;
        }

        /** Counts a result with which nothing is handed over. */
        private int nothing(String method, int result, Integer... documented) {
            count(method, result);
            check(Set.of(documented).contains(result), method + " gave " + result);
            check(values.given.isEmpty(), method + " gave " + result + " and called back");
            return result;
        }

        /** One look at a resource, mostly without the lock: who waits for it waits for whole seconds. */
        private void look() throws Throwable {
            String[] resource = anyResource();
            boolean keeping = isKeeper && keeps;
            boolean locked = keeping || random.nextInt(30) == 0;
            int result = locked ? readHeadline(resource[0], resource[1]) : -1;
            readLimit(resource[0], resource[1]);
            readCurve(resource[0], resource[1], "PRD");
            readCurve(resource[0], resource[1], "SMP");
            if (keeping && (result == 0 || result == 3)) {
                tell("kept");
                while (!ended && keeps) {
                    sleep(20);
                }
            }
            if (locked || random.nextInt(10) == 0) {
                fresh();
                nothing("unlock", Natives.unlock(), 0);
            }
        }

        private String[] anyResource() throws Throwable {
            int result = Natives.descriptors(fresh());
            if (result != 0) {
                nothing("descriptors", result, 1);
                return new String[] {"none", "none"};
            }
            count("descriptors", result);
            int texts = values.given.size();
            check(texts > 0 && texts % 2 == 0, "descriptors gave " + texts + " texts");
            int at = random.nextInt(texts / 2) * 2;
            String instance = values.given.get(at + 1)[1].replaceAll("[/:*?\"><| ]", "_");
            return new String[] {values.given.get(at)[1], instance};
        }

        private int readHeadline(String name, String instance) throws Throwable {
            Values all = fresh();
            int result = Natives.label(name, instance, all, all, all);
            if (result != 0) {
                return nothing("label", result, 1, 2, 3, 5);
            }
            count("label", result);
            List<String> methods = all.given.stream().map(call -> call[0]).toList();
            check(methods.equals(List.of("AppendInt", "AppendCompUnicode", "AppendFloat")), "label gave " + methods);
            check(all.given.get(1)[1].startsWith("Algorithm: "), "label of a script that is not whole");
            return result;
        }

        private void readLimit(String name, String instance) throws Throwable {
            int result = Natives.limit(name, instance, fresh());
            if (result != 0) {
                nothing("limit", result, 1, 3);
                return;
            }
            count("limit", result);
            check(values.given.size() == 1 && values.given.get(0)[0].equals("AppendInt"), "limit called otherwise");
        }

        private void readCurve(String name, String instance, String kind) throws Throwable {
            int result = Natives.pairs(name, instance, kind, fresh());
            if (values.given.isEmpty()) {
                nothing(kind, result, 1, 3);
                return;
            }
            count(kind, "read");
            boolean whole = kind.equals("PRD") ? result == FORECAST_TOKENS : result % 2 == 0;
            check(whole && result == values.given.size(), kind + " gave " + result + ", tokens " + values.given.size());
        }
    }

    private static List<Viewer> startViewers(int count) {
        Viewer.ended = false;
        Viewer.RESULTS.clear();
        List<Viewer> viewers = new ArrayList<>();
        for (int i = 0; i < count; i++) {
            Viewer viewer = new Viewer(i);
            viewer.start();
            viewers.add(viewer);
        }
        return viewers;
    }

    private static void endViewers(List<Viewer> viewers) throws InterruptedException {
        Viewer.ended = true;
        for (Viewer viewer : viewers) {
            viewer.join();
        }
        tellAnswers();
        tell("unviewed");
    }

    private static void tellAnswers() {
        Viewer.RESULTS.forEach((what, count) -> tell("viewer\t" + what + "\t" + count));
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

    /** Whether no further line has come for a moment. */
    private static boolean isQuiet() throws IOException, InterruptedException {
        Thread.sleep(20);
        return System.in.available() == 0;
    }

    public static void main(String[] arguments) throws Exception {
        System.load(arguments[0]);
        BufferedReader input = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8));
        Thread run = null;
        String objects = "values";
        List<Viewer> viewers = List.of();
        tell("ready");
        for (String line = input.readLine(); line != null; line = input.readLine()) {
            String[] words = line.split(" ", 3);
            String[] all = line.split(" ");
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
                    isQuiet(); // makes no object when it has run before
                    hog();
                    while (isQuiet()) {
                        continue;
                    }
                    hogged = null;
                    tell("unhogged");
                }
                case "throw" -> Values.appendsUntilThrow = Integer.parseInt(words[1]);
                case "objects" -> objects = words[1];
                case "descriptors", "label", "limit", "pairs", "unlock" -> view(all, objects);
                case "elsewhere" -> viewElsewhere(Arrays.copyOfRange(all, 1, all.length), objects);
                case "viewers" -> viewers = startViewers(Integer.parseInt(words[1]));
                case "keep" -> Viewer.keeps = true;
                case "unkeep" -> Viewer.keeps = false;
                case "answers" -> {
                    tellAnswers();
                    tell("answered");
                }
                case "unview" -> endViewers(viewers);
                case "unhog" -> { }
                case "exit" -> System.exit(Integer.parseInt(words[1]));
                default -> tell("unknown\t" + line);
            }
        }
    }
}
