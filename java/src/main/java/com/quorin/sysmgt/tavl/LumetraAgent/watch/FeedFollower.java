package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Feed;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Complaint;
import java.time.Duration;
import java.util.List;
import java.util.Optional;
import java.util.function.Consumer;

/**
 * Waits for what the library publishes and hands it on, on a thread of its own, "lumetra-view". A publication that
 * cannot be taken up is handed over again a second later, unless there is a newer one by then.
 */
public final class FeedFollower implements AutoCloseable {

    private static final Duration PATIENCE = Duration.ofSeconds(1);

    private final Feed feed;
    private final List<Consumer<? super Publication>> readers;
    private final Duration patience;
    private final Thread thread = new Thread(this::follow, "lumetra-view");
    private volatile boolean isClosed;
    private boolean isOver;
    private long last;
    private final Complaint complaint = new Complaint("The agent's state cannot be shown for now");

    /**
     * Opens the feed: from now on the library publishes. Made and started before the agent, so that nothing is
     * missed.
     *
     * @param readers are handed each publication, one after the other, and once more when another one failed;
     *                publications that come too fast are passed over, but for the last of a run and its end
     */
    public FeedFollower(Feed feed, List<Consumer<? super Publication>> readers) {
        this(feed, readers, PATIENCE);
    }

    /** One that waits for so long at a time, and before it hands the same over again. */
    public FeedFollower(Feed feed, List<Consumer<? super Publication>> readers, Duration patience) {
        this.feed = feed;
        this.readers = List.copyOf(readers);
        this.patience = patience;
        thread.setDaemon(true);
        last = feed.await(0, Duration.ZERO).map(Publication::serial).orElse(0L);
    }

    /**
     * Starts to wait.
     *
     * @throws OutOfMemoryError when there is no thread to be had
     */
    public void start() {
        thread.start();
    }

    /** Hands over what has been published, and ends; it has ended by itself when the run has. */
    @Override
    public void close() {
        isClosed = true;
        try {
            thread.join(2 * PATIENCE.toMillis());
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private void follow() {
        while (!isClosed && !isOver) {
            if (!handOver(patience)) {
                pause();
            }
        }
        for (int left = 2; left > 0 && !isOver; left--) { // the last cycle, and the end
            handOver(Duration.ZERO);
        }
    }

    /** False when the newest publication could not be taken up. */
    private boolean handOver(Duration time) {
        try {
            Optional<Publication> newest = feed.await(last, time);
            return newest.isEmpty() || handOver(newest.get());
        } catch (RuntimeException | Error e) {
            complaint.tell(e);
            return false;
        }
    }

    /** Each reader gets it, whatever becomes of the others. */
    private boolean handOver(Publication publication) {
        boolean isTaken = true;
        for (Consumer<? super Publication> reader : readers) {
            try {
                reader.accept(publication);
            } catch (RuntimeException | Error e) {
                complaint.tell(e);
                isTaken = false;
            }
        }
        if (isTaken) {
            last = publication.serial();
            isOver = publication.state().isEmpty();
        }
        return isTaken;
    }

    /** Waits without taking memory. */
    private void pause() {
        try {
            Thread.sleep(patience.toMillis());
        } catch (InterruptedException e) {
            isClosed = true; // nobody interrupts this thread but to end it
        }
    }
}
