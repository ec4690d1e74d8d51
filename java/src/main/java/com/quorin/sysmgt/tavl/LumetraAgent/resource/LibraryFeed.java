package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.quorin.sysmgt.tavl.LumetraAgent.HostFeed;
import java.time.Duration;
import java.util.List;
import java.util.Optional;

/** What the library of this process publishes. To be used only when {@link HostFeed#problem} names none. */
public final class LibraryFeed implements Feed {

    private volatile Publication newest = new Publication(0, 0, Optional.empty());

    @Override
    public Optional<Publication> await(long after, Duration patience) {
        return Optional.ofNullable(HostFeed.await(after, patience.toMillis())).map(this::read);
    }

    private Publication read(byte[] array) {
        newest = FeedReader.publication(array, newest.state().map(RunState::resources).orElse(List.of()));
        return newest;
    }

    @Override
    public Optional<Curves> curves(int id) {
        return Optional.ofNullable(HostFeed.curves(id)).map(FeedReader::curves);
    }

    /** The serial of the newest publication, at once, when it is above {@code known}; otherwise {@code known}. */
    public static long newestSerial(long known) {
        byte[] newer = HostFeed.await(known, 0);
        return newer == null ? known : FeedReader.serial(newer);
    }

    /** How far a run that begins has read its archive. */
    public static ArchiveReading reading() {
        return FeedReader.reading(HostFeed.reading());
    }
}
