package com.quorin.sysmgt.tavl.LumetraAgent.tell;

import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.LibraryFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import java.io.PrintStream;
import java.nio.file.Path;
import java.time.Duration;
import java.util.function.BinaryOperator;
import java.util.function.Supplier;

/** Has a program told of what is worth telling. Events may come on any thread, publications on one. */
public final class Telling implements AutoCloseable {

    private final EventProgram program;
    private final NewsDesk desk;

    /**
     * Starts what it needs: two threads.
     *
     * @param program      an executable file
     * @param remind       after so long an exhaustion is told again, and again; zero for never
     * @param host         the name of this machine; empty for none
     * @param page         where the page is now; empty for nowhere
     * @param trackRecords what came of announcements about a resource, by its name and instance; null: nothing
     * @param out          is told what does not work, and what the program says; must never block
     * @throws OutOfMemoryError when there are no threads to be had
     */
    public Telling(Path program, Duration remind, String host, Supplier<String> page,
            BinaryOperator<String> trackRecords, PrintStream out) {
        this.program = EventProgram.of(program, news -> new NewsLine(news, host, page.get()), out,
                EventProgram.Patience.SHIPPED, ProcessBuilder::start);
        desk = new NewsDesk(this.program, trackRecords, remind, LibraryFeed::newestSerial);
    }

    public void take(Event event) {
        desk.take(event);
    }

    public void take(Publication publication) {
        desk.take(publication);
    }

    /** Gives what is still to be told a few seconds, and says what is not. */
    @Override
    public void close() {
        desk.close();
        program.close();
    }
}
