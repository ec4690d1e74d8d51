package com.quorin.sysmgt.tavl.LumetraAgent.files;

import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.io.InputStream;
import java.nio.channels.Channels;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Reads the agent's reports on the processes that use most of a resource. */
public final class CulpritFile {

    private static final int LARGEST = 64 * 1024;

    /** A name may hold parentheses itself. */
    private static final Pattern LINE = Pattern.compile(
            "\\t\\((.*)\\) *\\tPID (-?\\d{1,18}) *\\t(?:#FDs|RSS|Children) (-?\\d{1,18})(?: MB)?\\s*");

    private CulpritFile() {}

    /**
     * The report on a resource, without processes when there is none.
     *
     * @param name        as it is displayed, a text of bytes
     * @param home        the data home directory as it stands in the configuration, a text of bytes
     * @param measure     what is counted of each process; null when there are no reports on the resource
     * @param measureText the same for people
     */
    public static CulpritReport read(int id, String name, String home, String measure, String measureText) {
        Path file = FileText.path(home + name + ".cul");
        if (measure == null) {
            return new CulpritReport(id, null, measureText, null, List.of());
        }
        try (InputStream in = Channels.newInputStream(OwnFile.read(file))) {
            long written = Files.getLastModifiedTime(file, LinkOption.NOFOLLOW_LINKS).to(TimeUnit.SECONDS);
            String text = new String(in.readNBytes(LARGEST), StandardCharsets.ISO_8859_1);
            return new CulpritReport(id, measure, measureText, written, parse(text));
        } catch (IOException | SecurityException e) {
            return new CulpritReport(id, measure, measureText, null, List.of());
        }
    }

    /**
     * The processes of a report in their order, their names without control characters. Lines that look otherwise are
     * passed over.
     *
     * @param text one character per byte
     */
    static List<Culprit> parse(String text) {
        List<Culprit> found = new ArrayList<>();
        for (String line : text.split("\n")) {
            Matcher m = LINE.matcher(line);
            if (m.matches()) {
                found.add(new Culprit(Words.ofBytes(m.group(1)), Long.parseLong(m.group(2)),
                        Long.parseLong(m.group(3))));
            }
        }
        return List.copyOf(found);
    }
}
