package com.quorin.sysmgt.tavl.LumetraAgent.client;

import java.util.concurrent.Callable;
import java.util.concurrent.Future;
import java.util.concurrent.FutureTask;

/** Work that is waited for only so long, on threads that keep no process alive. */
final class Background {

    private Background() {}

    /** Starts work on a thread of this name. */
    static <T> Future<T> start(String name, Callable<T> work) {
        FutureTask<T> task = new FutureTask<>(work);
        Thread thread = new Thread(task, name);
        thread.setDaemon(true);
        thread.start();
        return task;
    }
}
