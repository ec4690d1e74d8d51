package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Program;
import java.time.Duration;
import java.util.HashSet;
import java.util.OptionalLong;
import java.util.Set;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;

class AgentRunTest {

    private static final Duration LONG = Duration.ofDays(1);

    /**
     * Stands in for the library: forgets the first requests, as an agent does that is still setting itself
     * up. The one that it heeds returns when the run has ended, so that none comes after it, however slow the machine.
     */
    private static final class Forgetful implements AgentRun.Agent {
        private final CountDownLatch stopped;
        private final AtomicInteger requests = new AtomicInteger();
        private final AgentRun run = new AgentRun(this);

        Forgetful(int heeded) {
            stopped = new CountDownLatch(heeded);
        }

        @Override
        public int run() {
            try {
                stopped.await();
            } catch (InterruptedException e) {
                return -1;
            }
            return 0;
        }

        @Override
        public int pleaseStop() {
            requests.incrementAndGet();
            stopped.countDown();
            if (stopped.getCount() == 0) {
                run.awaitEnd(LONG);
            }
            return 0;
        }
    }

    private static AgentRun.Agent returning(int result) {
        return new AgentRun.Agent() {
            @Override
            public int run() {
                return result;
            }

            @Override
            public int pleaseStop() {
                return 0;
            }
        };
    }

    @Test
    void aStopRequestIsMadeUntilTheAgentHasReturned() {
        Forgetful agent = new Forgetful(3);
        AgentRun run = agent.run;
        run.prepare();
        run.start();
        run.stop(() -> { }, LONG);
        assertEquals(3, agent.requests.get());
        assertTrue(run.endedAsAsked());
        assertEquals(RunCommand.ENDED_AS_ASKED, RunCommand.exitCode(run, OptionalLong.of(3), 0));
    }

    @Test
    void aRunThatIsOnlyPreparedHasItsThreadAndDoesNothing() throws InterruptedException {
        AtomicInteger runs = new AtomicInteger();
        AgentRun run = new AgentRun(new AgentRun.Agent() {
            @Override
            public int run() {
                return runs.incrementAndGet();
            }

            @Override
            public int pleaseStop() {
                return 0;
            }
        });
        Set<Thread> before = Thread.getAllStackTraces().keySet();
        run.prepare();
        Set<Thread> after = new HashSet<>(Thread.getAllStackTraces().keySet());
        after.removeAll(before);
        while (after.stream().anyMatch(t -> t.isAlive() && t.getState() != Thread.State.WAITING)) {
            Thread.sleep(1);
        }
        assertEquals(0, runs.get());
        run.start();
        assertTrue(run.awaitEnd(LONG));
        assertEquals(1, runs.get());
    }

    @Test
    void aStopRequestBeforeTheStartIsNotLost() throws InterruptedException {
        AgentRun run = new Forgetful(2).run;
        Thread stopper = new Thread(() -> run.stop(() -> { }, LONG));
        stopper.start();
        run.prepare();
        run.start();
        stopper.join();
        assertTrue(run.endedAsAsked());
    }

    @Test
    void theWaitIsMentionedAgainAndAgain() {
        AtomicInteger reminders = new AtomicInteger();
        AgentRun run = new Forgetful(3).run;
        run.prepare();
        run.start();
        run.stop(reminders::incrementAndGet, Duration.ofMillis(50));
        assertEquals(2, reminders.get());
    }

    @Test
    void anAgentThatEndsByItselfHasFailed() {
        AgentRun run = new AgentRun(returning(0));
        run.prepare();
        run.start();
        assertTrue(run.awaitEnd(LONG));
        assertFalse(run.endedAsAsked());
        assertEquals(Program.FAILED, RunCommand.exitCode(run, OptionalLong.of(0), 1));
        assertEquals(Program.FAILED, RunCommand.exitCode(run, OptionalLong.of(5), 0));
    }

    @Test
    void stoppingAnAgentThatHasEndedByItselfDoesNotMakeItASuccess() {
        AgentRun run = new AgentRun(returning(-1));
        run.prepare();
        run.start();
        assertTrue(run.awaitEnd(LONG));
        run.stop(() -> { }, LONG);
        assertFalse(run.endedAsAsked());
        assertEquals(-1, run.result());
    }

    @Test
    void aFailingStartThatIsStoppedMeanwhileHasFailed() {
        AgentRun run = new Forgetful(1).run;
        run.prepare();
        run.start();
        run.stop(() -> { }, LONG);
        assertEquals(Program.FAILED, RunCommand.exitCode(run, OptionalLong.of(0), 1));
        assertEquals(RunCommand.ENDED_AS_ASKED, RunCommand.exitCode(run, OptionalLong.of(0), 0));
        assertEquals(RunCommand.ENDED_AS_ASKED, RunCommand.exitCode(run, OptionalLong.of(7), 2));
        assertEquals(RunCommand.ENDED_AS_ASKED, RunCommand.exitCode(run, OptionalLong.empty(), 2));
    }

    @Test
    void aMissingNativeMethodEndsTheRunWithItsReason() {
        AgentRun run = new AgentRun(new AgentRun.Agent() {
            @Override
            public int run() {
                throw new UnsatisfiedLinkError("research_main");
            }

            @Override
            public int pleaseStop() {
                throw new UnsatisfiedLinkError("javaThreadSyncPleaseStop");
            }
        });
        run.prepare();
        run.start();
        assertTrue(run.awaitEnd(LONG));
        assertEquals("research_main", run.failure().get().getMessage());
        assertEquals(Program.FAILED, RunCommand.exitCode(run, OptionalLong.of(0), 0));
    }

    @Test
    void aStopThatCannotBeAskedForDoesNotWaitForever() {
        AgentRun run = new AgentRun(new AgentRun.Agent() {
            @Override
            public int run() {
                try {
                    new CountDownLatch(1).await();
                } catch (InterruptedException e) {
                    return -1;
                }
                return 0;
            }

            @Override
            public int pleaseStop() {
                throw new UnsatisfiedLinkError("javaThreadSyncPleaseStop");
            }
        });
        run.prepare();
        run.start();
        run.stop(() -> { }, LONG);
        assertFalse(run.endedAsAsked());
    }
}
