package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.GivenResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class FeedFollowerTest {

    private static final RunState STATE = GivenResource.state(1000);
    private static final Duration PATIENCE = Duration.ofMillis(10);

    private final FakeFeed feed = new FakeFeed();
    private final BlockingQueue<Publication> seen = new LinkedBlockingQueue<>();
    private final ByteArrayOutputStream told = new ByteArrayOutputStream();
    private final PrintStream err = System.err;
    private FeedFollower follower;

    @BeforeEach
    void listen() {
        System.setErr(new PrintStream(told, true, StandardCharsets.UTF_8));
    }

    @AfterEach
    void close() {
        System.setErr(err);
        follower.close();
    }

    private void follow(List<Consumer<? super Publication>> readers) {
        follower = new FeedFollower(feed, readers, PATIENCE);
        follower.start();
    }

    private Publication next() throws InterruptedException {
        return seen.poll(1, TimeUnit.HOURS);
    }

    @Test
    void everyReaderIsHandedEachPublicationInOrder() throws InterruptedException {
        follow(List.of(seen::add, seen::add));
        for (int i = 0; i < 3; i++) {
            Publication publication = feed.publish(i, STATE);
            assertEquals(publication, next());
            assertEquals(publication, next());
        }
    }

    @Test
    void whatWasPublishedBeforeItIsNotHandedOver() throws InterruptedException {
        feed.end(99);
        follow(List.of(seen::add));
        while (!feed.isAwaited && seen.isEmpty()) {
            Thread.onSpinWait(); // until it has looked
        }
        Publication publication = feed.publish(1, STATE);
        assertEquals(publication, next());
    }

    @Test
    void theEndIsTheLast() throws InterruptedException {
        follow(List.of(seen::add));
        Publication end = feed.end(5);
        assertEquals(end, next());
        feed.publish(0, STATE);
        follower.close();
        assertNull(seen.poll());
    }

    /** Waits until the closer waits for this thread's end, or has done so. */
    private static void startAndAwaitItsWaiting(Thread closer) {
        closer.start();
        while (closer.getState() != Thread.State.TIMED_WAITING && closer.isAlive()) {
            Thread.onSpinWait();
        }
    }

    @Test
    void whatWasPublishedBeforeItIsClosedIsStillHandedOver() throws InterruptedException {
        Thread closer = new Thread(() -> follower.close());
        follow(List.of(publication -> {
            if (publication.cycles() == 1) {
                feed.publish(2, STATE);
                startAndAwaitItsWaiting(closer);
            }
            seen.add(publication);
        }));
        feed.publish(1, STATE);
        assertEquals(1, next().cycles());
        assertEquals(2, next().cycles());
        closer.join();
    }

    @Test
    void theLastCycleIsHandedOverBeforeTheEndAlsoToWhoIsClosed() throws InterruptedException {
        Thread closer = new Thread(() -> follower.close());
        follow(List.of(publication -> {
            if (publication.cycles() == 1) {
                feed.publish(2, STATE);
                feed.publish(3, STATE);
                feed.end(3);
                startAndAwaitItsWaiting(closer);
            }
            seen.add(publication);
        }));
        feed.publish(1, STATE);
        assertEquals(1, next().cycles());
        Publication last = next();
        assertEquals(3, last.cycles());
        assertTrue(last.state().isPresent());
        closer.join();
        assertTrue(next().state().isEmpty());
    }

    @ParameterizedTest
    @ValueSource(classes = {IllegalStateException.class, OutOfMemoryError.class})
    void aReaderThatFailsIsToldOfOnceAndGetsTheSameAgain(Class<? extends Throwable> kind) throws Exception {
        Throwable failure = kind.getConstructor(String.class).newInstance("no memory");
        int[] failures = {3};
        follow(List.of(publication -> {
            if (failures[0]-- > 0) {
                sneak(failure);
            }
            seen.add(publication);
        }));
        Publication publication = feed.publish(1, STATE);
        assertEquals(publication, next());
        assertEquals("The agent's state cannot be shown for now: " + kind.getName() + ": no memory\n",
                told.toString(StandardCharsets.UTF_8));
    }

    @Test
    void aReaderThatFailsKeepsNothingFromTheOthers() throws InterruptedException {
        follow(List.of(publication -> sneak(new OutOfMemoryError("no memory")), seen::add));
        Publication publication = feed.publish(1, STATE);
        assertEquals(publication, next());
    }

    private static void sneak(Throwable failure) {
        if (failure instanceof Error error) {
            throw error;
        }
        throw (RuntimeException) failure;
    }
}
