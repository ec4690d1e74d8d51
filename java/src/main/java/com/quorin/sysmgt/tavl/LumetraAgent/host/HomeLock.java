package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.files.OwnFile;
import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.channels.FileLock;
import java.nio.channels.OverlappingFileLockException;
import java.nio.file.AccessDeniedException;
import java.nio.file.Path;
import java.util.Optional;

/**
 * Keeps a home to one agent: a lock on a file in it, which the kernel takes back when the process ends,
 * however it ends. The file itself is empty and stays.
 */
final class HomeLock {

    /** The file, in the agent's working directory. */
    static final Path FILE = Path.of("agent.lock");

    /** Held here, as a channel that nobody holds is closed some day, and the lock goes with it. */
    private final FileChannel channel;
    private final boolean taken;
    private final boolean denied;
    private final String problem;

    private HomeLock(FileChannel channel, boolean taken, boolean denied, String problem) {
        this.channel = channel;
        this.taken = taken;
        this.denied = denied;
        this.problem = problem;
    }

    /** Tries to lock a home by a file, which is made when it is missing; waits for nobody. */
    static HomeLock take(Path file) {
        FileChannel channel = null;
        try {
            channel = OwnFile.write(file);
            FileLock lock = channel.tryLock();
            if (lock != null) {
                return new HomeLock(channel, false, false, null);
            }
            close(channel);
            return new HomeLock(null, true, false, null);
        } catch (OverlappingFileLockException e) {
            close(channel);
            return new HomeLock(null, true, false, null);
        } catch (AccessDeniedException e) {
            // where it is not there, it may not be made: no other agent can hold it
            return new HomeLock(null, false, OwnFile.exists(file), e.toString());
        } catch (IOException | RuntimeException e) {
            close(channel);
            return new HomeLock(null, false, false, e.toString());
        }
    }

    private static void close(FileChannel channel) {
        try {
            if (channel != null) {
                channel.close();
            }
        } catch (IOException e) {
            // nothing was written
        }
    }

    /** Whether an agent works in this home already: another process holds the lock. */
    boolean isTaken() {
        return taken;
    }

    /**
     * Whether the file is there and this user may not open it: it is an agent's of another user, and nobody can tell
     * whether that one works here.
     */
    boolean isDenied() {
        return denied;
    }

    /**
     * Why the home cannot be locked although nobody has locked it, as on a file system that knows no locks; empty
     * when it is locked, by this process or another.
     */
    Optional<String> problem() {
        return Optional.ofNullable(problem);
    }

    /** Gives the home free. */
    void release() {
        close(channel);
    }
}
