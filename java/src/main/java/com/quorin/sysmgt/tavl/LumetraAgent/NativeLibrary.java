package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Optional;
import java.util.function.IntSupplier;

/** Loads the native library {@code libObrinagent.so} into this process. */
public final class NativeLibrary {

    /** The system property that holds the absolute path of the library. */
    public static final String PATH_PROPERTY = "lumetra.library";

    private static final String NAME = "Obrinagent";

    /** Says that the native library could not be loaded, and why. */
    public static final class Unavailable extends Exception {
        private static final long serialVersionUID = 1L;

        public Unavailable(String message, Throwable cause) {
            super(message, cause);
        }
    }

    private NativeLibrary() {}

    /**
     * Loads the library from the path in the system property {@value #PATH_PROPERTY}, or from the Java
     * library path when the property is not set. Loading it a second time changes nothing.
     *
     * @throws Unavailable when the library cannot be loaded; the message says from where and why
     */
    public static void load() throws Unavailable {
        String path = System.getProperty(PATH_PROPERTY, "");
        try {
            if (path.isEmpty()) {
                System.loadLibrary(NAME);
            } else {
                System.load(path);
            }
        } catch (UnsatisfiedLinkError | SecurityException e) {
            throw new Unavailable(reason(path, e.getMessage()), e);
        }
    }

    /**
     * Why an interface of the library that is loaded cannot be used, in one sentence that names both versions; empty
     * when it can.
     *
     * @param whose          who uses it: a noun
     * @param version        of the interface as this program knows it
     * @param libraryVersion asks the library; without such an interface, an UnsatisfiedLinkError
     */
    static Optional<String> problem(String whose, int version, IntSupplier libraryVersion) {
        String found;
        try {
            int other = libraryVersion.getAsInt();
            if (other == version) {
                return Optional.empty();
            }
            found = "has version " + other + " of its interface for " + whose;
        } catch (UnsatisfiedLinkError e) {
            found = "has no interface for " + whose;
        }
        return Optional.of(
                "the native library " + found + ", and this program is made for version " + version);
    }

    private static String reason(String path, String detail) {
        if (path.isEmpty()) {
            return "Cannot load lib" + NAME + ".so from the Java library path ("
                    + System.getProperty("java.library.path", "") + "): " + detail
                    + ". Name the file with -D" + PATH_PROPERTY + "=/absolute/path/lib" + NAME + ".so";
        }
        return "Cannot load the native library " + path + " (named by -D" + PATH_PROPERTY + "): " + detail;
    }
}
