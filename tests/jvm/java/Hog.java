import com.quorin.sysmgt.tavl.LumetraAgent.host.Lumetra;
import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.IOException;

/**
 * The agent's program in a Java machine whose heap somebody else fills: "fill" on standard input takes all of it, whatever
 * the others give back, until "free".
 */
public final class Hog {

    /** One held block and the one before it. */
    private record Block(Block before, byte[] bytes) {}

    private static final byte[] FULL = "the heap is full\n".getBytes();
    private static final byte[] FREE = "the heap is free\n".getBytes();
    private static final FileOutputStream OUT = new FileOutputStream(FileDescriptor.out);
    private static volatile boolean wanted;
    private static volatile boolean full;
    private static volatile boolean over;

    private Hog() {}

    public static void main(String[] arguments) {
        start(Hog::obey);
        start(Hog::eat);
        Lumetra.main(arguments);
    }

    private static void start(Runnable work) {
        Thread thread = new Thread(work, "hog");
        thread.setDaemon(true);
        thread.start();
    }

    /** Reads without taking memory: one byte tells which word it is. */
    private static void obey() {
        try {
            for (int c = System.in.read(); c >= 0; c = System.in.read()) {
                if (c == 'f') {
                    int next = System.in.read();
                    wanted = next == 'i';
                    over = next == 'r';
                }
            }
        } catch (IOException e) {
            over = true;
        }
    }

    private static void eat() {
        Block last = null;
        while (true) {
            try {
                Thread.sleep(1);
                if (over) {
                    last = null;
                    over = false;
                    wanted = false;
                    full = false;
                    OUT.write(FREE);
                }
                for (int size = 1 << 20; wanted && !over && size >= 16; ) {
                    try {
                        last = new Block(last, new byte[size]);
                    } catch (OutOfMemoryError e) {
                        size /= 2;
                    }
                }
                if (wanted && !full) {
                    full = true;
                    OUT.write(FULL);
                }
            } catch (OutOfMemoryError e) {
                // as it should be
            } catch (InterruptedException | IOException e) {
                return;
            }
        }
    }
}
