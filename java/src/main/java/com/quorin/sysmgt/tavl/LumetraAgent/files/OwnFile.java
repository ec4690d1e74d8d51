package com.quorin.sysmgt.tavl.LumetraAgent.files;

import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.file.AccessDeniedException;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.Map;
import java.util.Optional;
import java.util.Set;

/**
 * Opens the files that the agent and its host write, by the rules of the library (support/safeOpen.h): whoever may
 * write a directory can put anything there under their names. Nothing here waits for a pipe or follows a link.
 */
public final class OwnFile {

    private static final Path OWN_PROCESS = Path.of("/proc/self");
    private static final int ALL_MAY_WRITE = 0003;
    private static final String NO_FILE = "it is no regular file";
    private static final String ANOTHER_USERS = "it is another user's, in a directory that everybody may write";

    private OwnFile() {}

    /** Opens a file to read; an IOException for what is no regular file of the agent's. */
    public static FileChannel read(Path file) throws IOException {
        return read(file, user());
    }

    /**
     * The same for an agent of another user.
     *
     * @param user its number
     */
    public static FileChannel read(Path file, int user) throws IOException {
        examine(file, user);
        return openToRead(file, user);
    }

    /** Opens what lies there by now, which may be another thing than what was looked at. */
    static FileChannel openToRead(Path file, int user) throws IOException {
        return examined(openWithoutWaiting(file), file, user);
    }

    /** To write as well where that is permitted: what is a pipe by now would hold up who opens it to read alone. */
    private static FileChannel openWithoutWaiting(Path file) throws IOException {
        try {
            return FileChannel.open(file, StandardOpenOption.READ, StandardOpenOption.WRITE, LinkOption.NOFOLLOW_LINKS);
        } catch (AccessDeniedException e) {
            if (isOpenToAll(file)) {
                throw new AccessDeniedException(e.getFile(), null,
                        "it cannot be opened to write, in a directory that everybody may write");
            }
        } catch (FileSystemException e) {
            // of a read-only file system, say, where nobody changes anything
        }
        return FileChannel.open(file, StandardOpenOption.READ, LinkOption.NOFOLLOW_LINKS);
    }

    /** The open channel, unless something speaks against what it leads to: then it is closed. */
    static FileChannel examined(FileChannel channel, Path file, int user) throws IOException {
        try {
            if (!hasPositions(channel)) {
                throw new FileSystemException(file.toString(), null, NO_FILE);
            }
            examine(file, user);
            return channel;
        } catch (IOException | RuntimeException e) {
            channel.close();
            throw e;
        }
    }

    /** Not so for a pipe or a terminal, from which reading would wait. */
    private static boolean hasPositions(FileChannel channel) {
        try {
            return channel.position() == 0;
        } catch (IOException e) {
            return false;
        }
    }

    /**
     * Opens a file to read and write, which is made when it is missing, for its owner and group alone; an IOException
     * for what is no regular file of the agent's.
     */
    public static FileChannel write(Path file) throws IOException {
        int user = user();
        if (exists(file)) {
            examine(file, user);
        }
        // to read as well: what is a pipe by now would hold up who opens it to write alone
        return examined(FileChannel.open(file, Set.of(StandardOpenOption.CREATE, StandardOpenOption.READ,
                StandardOpenOption.WRITE, LinkOption.NOFOLLOW_LINKS),
                PosixFilePermissions.asFileAttribute(PosixFilePermissions.fromString("rw-r-----"))), file, user);
    }

    /** Whether anything lies there, a link that leads nowhere included. */
    public static boolean exists(Path file) {
        return Files.exists(file, LinkOption.NOFOLLOW_LINKS);
    }

    /**
     * Why a file that people write for the agent does not count: it may be a link, but where everybody may write, it
     * must be the link and the file of root or of the agent's user. Empty when nothing speaks against it.
     *
     * @param user the number of the agent's user
     */
    public static Optional<String> objectionToGiven(Path file, int user) throws IOException {
        if (Files.isSymbolicLink(file) && !isOf(user, attributes(file)) && isOpenToAll(file)) {
            return Optional.of(ANOTHER_USERS);
        }
        return objection(file.toRealPath(), user);
    }

    /** The number of this process's user. */
    public static int user() throws IOException {
        return owner(OWN_PROCESS);
    }

    /** The number of a file's or directory's user. */
    public static int owner(Path file) throws IOException {
        return (Integer) Files.getAttribute(file, "unix:uid");
    }

    private static void examine(Path file, int user) throws IOException {
        Optional<String> objection = objection(file, user);
        if (objection.isPresent()) {
            throw new FileSystemException(file.toString(), null, objection.get());
        }
    }

    private static Optional<String> objection(Path file, int user) throws IOException {
        Map<String, Object> state = attributes(file);
        if ((Boolean) state.get("isSymbolicLink")) {
            return Optional.of("it is a symbolic link");
        }
        if (!(Boolean) state.get("isRegularFile")) {
            return Optional.of(NO_FILE);
        }
        boolean isOurs = isOf(user, state);
        if (isOurs && (Integer) state.get("nlink") == 1 || !isOpenToAll(file)) {
            return Optional.empty();
        }
        return Optional.of(isOurs ? "it has a second name, in a directory that everybody may write" : ANOTHER_USERS);
    }

    private static Map<String, Object> attributes(Path file) throws IOException {
        return Files.readAttributes(file, "unix:isRegularFile,isSymbolicLink,uid,nlink", LinkOption.NOFOLLOW_LINKS);
    }

    private static boolean isOf(int user, Map<String, Object> state) {
        int owner = (Integer) state.get("uid");
        return owner == 0 || owner == user;
    }

    private static boolean isOpenToAll(Path file) throws IOException {
        int mode = (Integer) Files.getAttribute(file.toAbsolutePath().getParent(), "unix:mode");
        return (mode & ALL_MAY_WRITE) == ALL_MAY_WRITE;
    }
}
