package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import org.junit.jupiter.api.Test;

class ResourceNamesTest {

    private static ResourceNames names(GivenResource resource) {
        return ResourceNames.of(resource.made().identity());
    }

    @Test
    void aDiskHasADeviceAndAMountPoint() {
        ResourceNames names = names(GivenResource.disk(5, "my server:/x y", "/mnt/a b"));
        assertEquals(new Snapshot.Identity(5, "Space", "my server:/x y /mnt/a b", "my server:/x y", "/mnt/a b",
                "PercentFreeSpaceUsed", "space"),
                names.shown());
        assertEquals(new TrendReader.Resource("Space", "my server:/x y /mnt/a b"), names.key());
    }

    @Test
    void aDiskWithoutAMountPointIsItsDevice() {
        GivenResource disk = GivenResource.disk(5, "overlay", "");
        disk.instance = "overlay";
        disk.mountPoint = -1;
        assertEquals(new Snapshot.Identity(5, "Space", "overlay", "overlay", null,
                "PercentFreeSpaceUsed", "space"), names(disk).shown());
    }

    @Test
    void whatIsOfTheWholeSystemShowsNoInstanceAndEventsTellOne() {
        ResourceNames names = names(GivenResource.swap(3));
        assertEquals(new Snapshot.Identity(3, "Swap", "", null, null, "PercentSwapSpaceUsed", "Swap"), names.shown());
        assertEquals(new TrendReader.Resource("Swap", "_Total"), names.key());
    }

    @Test
    void aProcessShowsItsInstance() {
        GivenResource process = GivenResource.single(8, Counters.PROCESS);
        process.instance = "java";
        assertEquals("java", names(process).shown().instance());
    }

    @Test
    void withoutADisplayNameTheCounterIsShownAndEventsTellNone() {
        GivenResource swap = GivenResource.swap(3);
        swap.name = "";
        assertEquals(GivenResource.SWAP, names(swap).shown().resource());
        assertEquals("", names(swap).key().name());
    }

    @Test
    void hostileNamesAreShownEscapedAndKnownRaw() {
        ResourceNames names = names(GivenResource.disk(5, "/dev/\u001b[2J", "/m\nn\u00c3\u00a9)x\u00ff"));
        assertEquals("/dev/\\x1b[2J", names.shown().device());
        assertEquals("/m\\nn\u00e9)x\\xff", names.shown().mountpoint());
        assertEquals("/dev/\u001b[2J /m\nn\u00e9)x\ufffd", names.key().instance());
    }
}
