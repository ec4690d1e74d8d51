package com.quorin.sysmgt.tavl.LumetraAgent;

import java.nio.file.Path;
import java.util.Optional;

/**
 * The agent's configuration file, AutoConfig.ini, as far as the host shows it: eleven items told apart by
 * position alone. Names are texts of bytes, relative to the agent's working directory.
 *
 * @param homeDirectory     item 1, the data home directory
 * @param archive           items 1 and 2 joined, the archive of samples
 * @param scratchPad        item 3, the file of resource identifiers
 * @param resourceText      item 5, the resource declarations
 * @param periodMillis      item 6, milliseconds per sample; -1 lets the agent choose
 * @param minForecastHours  item 7, the nearest exhaustion that is announced
 * @param maxForecastHours  item 8, the farthest exhaustion that is announced
 * @param maxArchiveMegabytes item 9, the size that the archive is kept at
 */
record AgentConfiguration(String homeDirectory, String archive, String scratchPad, String resourceText,
        int periodMillis, int minForecastHours, int maxForecastHours, int maxArchiveMegabytes) {

    /**
     * Reads the items as the agent does: a number that is malformed leaves it and all later numbers at 0.
     *
     * @param text the file's content, one character per byte
     * @return the configuration; empty when the text ends before the five names are complete
     */
    static Optional<AgentConfiguration> parse(String text) {
        TextScanner scanner = new TextScanner(text);
        String[] names = new String[5];
        for (int i = 0; i < names.length; i++) {
            Optional<String> name = scanner.token();
            if (name.isEmpty()) {
                return Optional.empty();
            }
            names[i] = name.get();
        }
        int[] numbers = new int[4];
        for (int i = 0; i < numbers.length; i++) {
            numbers[i] = scanner.wholeNumber().orElse(0);
        }
        return Optional.of(new AgentConfiguration(names[0], names[0] + names[1], names[2], names[4],
                numbers[0], numbers[1], numbers[2], numbers[3]));
    }

    /**
     * Reads a configuration file.
     *
     * @param file the file
     * @return the configuration; empty when the file cannot be read or is incomplete
     */
    static Optional<AgentConfiguration> read(Path file) {
        return FileText.read(file).flatMap(AgentConfiguration::parse);
    }
}
