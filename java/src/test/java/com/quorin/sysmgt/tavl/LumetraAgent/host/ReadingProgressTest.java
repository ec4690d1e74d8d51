package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.ArchiveReading;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.util.List;
import org.junit.jupiter.api.Test;

class ReadingProgressTest {

    private static final long SECOND = 1_000_000_000L;
    private static final ArchiveReading NONE = new ArchiveReading(0, 0);

    private final ByteArrayOutputStream output = new ByteArrayOutputStream();
    private ArchiveReading reading = NONE;
    private final ReadingProgress progress =
            new ReadingProgress(new PrintStream(output, true, StandardCharsets.UTF_8), () -> reading);

    private List<String> after(double seconds, ArchiveReading now) {
        reading = now;
        progress.look((long) (seconds * SECOND));
        return output.toString(StandardCharsets.UTF_8).lines().toList();
    }

    @Test
    void aReadingThatLastsIsToldNowAndThen() {
        assertEquals(List.of(), after(0, NONE));
        assertEquals(List.of(), after(5, new ArchiveReading(0, 2L << 30)));
        assertEquals(List.of(), after(7.9, new ArchiveReading(1 << 20, 2L << 30)));
        List<String> first = List.of("Reading the archive: 25 % of 2.0 GiB.");
        assertEquals(first, after(8, new ArchiveReading(1 << 29, 2L << 30)));
        assertEquals(first, after(17.9, new ArchiveReading(1 << 30, 2L << 30)));
        assertEquals(2, after(18, new ArchiveReading(3 << 29, 2L << 30)).size());
        assertEquals(2, after(40, NONE).size());
    }

    @Test
    void oneThatIsSoonOverIsNotTold() {
        after(0, new ArchiveReading(0, 50 << 20));
        after(2.5, NONE);
        assertEquals(List.of(), after(60, new ArchiveReading(0, 50 << 20)));
    }
}
