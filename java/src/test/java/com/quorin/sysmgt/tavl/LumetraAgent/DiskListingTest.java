package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Optional;
import org.junit.jupiter.api.Test;

class DiskListingTest {

    private static final String BLOCKS = """
            Filesystem                   1K-blocks      Used  Available Use% Mounted on
            /dev/vda                     264212084  16504612   83832576  17% /
            /dev/sda1                   4294967296 100000000 4000000000   3% /mnt/my big disk
            //server/my share                 1000       400        600  40% /mnt/share
            portal                               -         -          -   -  /run/user/1000/doc
            """;

    private static final String INODES = """
            Filesystem     Inodes IUsed IFree IUse% Mounted on
            /dev/vda          200    50   150   25% /
            /dev/sda1           0     0     0     - /boot/efi
            """;

    @Test
    void theCapacityIsWhatIsUsedAndWhatIsAvailable() {
        assertEquals(Optional.of(100337188.0), DiskListing.parse(BLOCKS).capacity("/dev/vda /"));
        assertEquals(Optional.of(200.0), DiskListing.parse(INODES).capacity("/dev/vda /"));
    }

    @Test
    void devicesAndMountPointsMayHoldBlanks() {
        DiskListing listing = DiskListing.parse(BLOCKS);
        assertEquals(Optional.of(4100000000.0), listing.capacity("/dev/sda1 /mnt/my big disk"));
        assertEquals(Optional.of(1000.0), listing.capacity("//server/my share /mnt/share"));
    }

    @Test
    void aPercentageOfADashIsAccepted() {
        assertEquals(Optional.of(0.0), DiskListing.parse(INODES).capacity("/dev/sda1 /boot/efi"));
    }

    @Test
    void disksThatDifferOnlyInReplacedCharactersAreTheSame() {
        assertEquals(Optional.of(200.0), DiskListing.parse(INODES).capacity("/dev/vda:_"));
    }

    @Test
    void onlyAListingThatCameSaysThatThereIsNone() {
        assertTrue(DiskListing.parse("Filesystem 1K-blocks Used Available Use% Mounted on\n").saysNone());
        assertFalse(DiskListing.parse("").saysNone());
        assertFalse(DiskListing.empty().saysNone());
        assertFalse(DiskListing.parse(BLOCKS).saysNone());
    }

    @Test
    void aDiskThatIsNotListedHasNoCapacity() {
        assertTrue(DiskListing.parse(BLOCKS).capacity("/dev/sdz /nowhere").isEmpty());
        assertTrue(DiskListing.parse("").capacity("").isEmpty());
        assertTrue(DiskListing.parse("Filesystem\n%d %s\n\n(((\n").capacity("%d").isEmpty());
    }
}
