package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;

class MetricsNamesTest {

    private final MetricsNames names = new MetricsNames();

    private static Snapshot.Resource resource(int id, String name, String instance) {
        return FakeView.resource(id, name, instance, 1.0);
    }

    private static String labels(String name, String device) {
        return "resource=\"" + name + "\",device=\"" + device + "\",mountpoint=\"\"";
    }

    @Test
    void anInstanceThatIsNoDiskStandsForTheDevice() {
        assertEquals(Map.of(1, labels("Load", "cpu0")), names.of(List.of(resource(1, "Load", "cpu0"))));
    }

    @Test
    void theFirstOfSeveralKeepsTheBareName() {
        assertEquals(Map.of(3, labels("Swap", ""), 9, labels("Swap (9)", "")),
                names.of(List.of(resource(9, "Swap", ""), resource(3, "Swap", ""))));
    }

    @Test
    void aNumberThatIsInANameAlreadyDoesNotCollide() {
        assertEquals(Map.of(1, labels("Swap", ""), 2, labels("Swap (3)", ""), 3, labels("Swap (3) (3)", "")),
                names.of(List.of(
                        resource(1, "Swap", ""), resource(2, "Swap (3)", ""), resource(3, "Swap", ""))));
    }

    @Test
    void labelsThatWereGivenStayWhenOthersComeAndGo() {
        names.of(List.of(resource(5, "Swap", "")));
        Map<Integer, String> both = names.of(List.of(resource(2, "Swap", ""), resource(5, "Swap", "")));
        assertEquals(Map.of(5, labels("Swap", ""), 2, labels("Swap (2)", "")), both);
        assertEquals(Map.of(2, labels("Swap (2)", "")), names.of(List.of(resource(2, "Swap", ""))));
    }

    @Test
    void aResourceThatIsRenamedGetsNewLabels() {
        names.of(List.of(resource(1, "Swap", "")));
        assertEquals(Map.of(1, labels("Swap space", "")), names.of(List.of(resource(1, "Swap space", ""))));
    }
}
