package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.quorin.sysmgt.tavl.LumetraAgent.HostFeed;
import java.time.Duration;
import java.util.Optional;

/** What the library of this process publishes. To be used only when {@link HostFeed#problem} names none. */
public final class LibraryFeed implements Feed {

    private volatile KnownIdentities newest = KnownIdentities.NONE;

    @Override
    public Optional<Publication> await(long after, Duration patience) {
        return Optional.ofNullable(HostFeed.await(after, patience.toMillis())).map(this::read);
    }

    private Publication read(byte[] array) {
        FeedReader reader = new FeedReader(array, newest);
        Publication publication = reader.publication();
        newest = reader.identities();
        return publication;
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
