package com.quorin.sysmgt.tavl.LumetraAgent;

/** The native library in the process of the tests, which name it by a system property. */
public final class LoadedLibrary {

    private LoadedLibrary() {}

    public static void load() {
        try {
            NativeLibrary.load();
        } catch (NativeLibrary.Unavailable e) {
            throw new AssertionError(e);
        }
    }
}
