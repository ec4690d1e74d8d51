package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.FutureTask;

/** Looks at everything, in an order in which nothing that may hang is touched before it has answered. */
public final class Doctor {

    private final Machine machine;
    private final Path home;
    private final Path configuration;
    private final int port;

    private Doctor(Machine machine, Path home, Path configuration, int port) {
        this.machine = machine;
        this.home = home;
        this.configuration = configuration;
        this.port = port;
    }

    /**
     * All findings about this machine, the worst first.
     *
     * @param port of the page; 0 when none is wanted
     */
    public static List<Symptom> examine(Path home, Path configuration, int port) {
        return examine(new Machine(Path.of("/"), Commands.real()), home, configuration, port);
    }

    static List<Symptom> examine(Machine machine, Path home, Path configuration, int port) {
        try {
            return new Doctor(machine, home.toAbsolutePath().normalize(),
                    configuration.toAbsolutePath().normalize(), port)
                    .examine();
        } catch (InterruptedException | ExecutionException e) {
            throw new IllegalStateException(e); // nobody interrupts it, and no question fails
        }
    }

    /** What hangs, hangs at the same time. */
    private static <T> FutureTask<T> inBackground(Callable<T> question) {
        FutureTask<T> task = new FutureTask<>(question);
        Thread thread = new Thread(task, "lumetra-doctor");
        thread.setDaemon(true);
        thread.start();
        return task;
    }

    private List<Symptom> examine() throws InterruptedException, ExecutionException {
        List<Symptom> found = new ArrayList<>();
        List<Mount> mounts = Mount.of(machine);
        KernelCheck kernel = new KernelCheck(machine);
        found.add(kernel.container());
        found.add(kernel.descriptors());
        found.add(kernel.swap());
        found.add(kernel.processes(mounts));
        DisksCheck disks = new DisksCheck(machine, mounts);
        HomeCondition condition = new HomeCondition(machine, mounts, home, configuration);
        FutureTask<Commands.End> df = inBackground(disks::list);
        FutureTask<Boolean> answers = inBackground(condition::answers);
        found.add(disks.mounts());
        found.add(disks.df(df.get()));
        found.add(kernel.clock());
        if (answers.get()) {
            examineHome(found, condition);
        } else {
            found.add(new Symptom(Subject.HOME, Severity.PROBLEM, "the file system of the home or of the configuration "
                    + "does not answer", "Nothing of the home was looked at. See to that file system first."));
        }
        found.sort(Symptom.WORST_FIRST);
        return found;
    }

    private void examineHome(List<Symptom> found, HomeCondition condition) {
        found.add(condition.home());
        AgentProcess process = AgentProcess.of(machine, home);
        found.add(process.lock(machine));
        if (condition.isOpen()) {
            found.add(condition.configuration());
            found.add(condition.space());
            found.add(condition.owner());
        }
        if (port != 0) {
            found.add(PortCheck.of(port, home));
        }
        RightsCheck rights = new RightsCheck(machine, process);
        found.add(rights.rights());
        found.add(rights.openFiles());
        found.add(rights.threads());
        found.add(rights.memory());
    }
}
