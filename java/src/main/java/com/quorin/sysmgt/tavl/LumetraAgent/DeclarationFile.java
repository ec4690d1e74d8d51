package com.quorin.sysmgt.tavl.LumetraAgent;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;

/**
 * Reads the resource declarations (resources.txt) as the agent does, but forgivingly: where the agent would
 * refuse the file, the inputs before the fault are returned. The agent itself tells of the fault.
 */
final class DeclarationFile {

    private final TextScanner scanner;

    private DeclarationFile(String text) {
        scanner = new TextScanner(text);
    }

    /**
     * The complete resource inputs of a text, in the order in which they stand there.
     *
     * @param text the file's content, one character per byte
     * @return the inputs; none when the text holds no declaration
     */
    static List<DeclaredResource> parse(String text) {
        return new DeclarationFile(text).inputs();
    }

    /**
     * The complete resource inputs of a file.
     *
     * @param file the declaration file
     * @return the inputs; none when the file cannot be read
     */
    static List<DeclaredResource> read(Path file) {
        return FileText.read(file).map(DeclarationFile::parse).orElse(List.of());
    }

    private List<DeclaredResource> inputs() {
        List<DeclaredResource> found = new ArrayList<>();
        if (!seek("BeginResourceDeclaration")) {
            return found;
        }
        boolean more = true;
        while (more && seek("FindObject")) {
            Optional<String> object = scanner.argument();
            boolean readsOn = object.isPresent() && !object.get().equals("File");
            Optional<DeclaredResource> input = readsOn ? input(object.get()) : Optional.empty();
            input.ifPresent(found::add);
            more = input.isPresent() && scanner.token().equals(Optional.of("BeginResourceInput"));
        }
        return found;
    }

    private Optional<DeclaredResource> input(String object) {
        Optional<String> instance = argumentOf("FindInstance");
        Optional<String> counter = argumentOf("FindCounter");
        double window = numberOf("WindowSize");
        Optional<String> name = argumentOf("NameIs");
        int method = seek("AnalyticalMethod") ? scanner.wholeNumber().orElse(0) : 0;
        double upperAbs = numberOf("UpperLimitAbs");
        double upperCalc = numberOf("UpperLimitCalc");
        numberOf("LowerLimitAbs");
        numberOf("LowerLimitCalc");
        Optional<String> marker = argumentOf("CulpritMarker");
        seek("EndResourceInput");
        // a missing keyword uses up the text, so the last argument is there only if all the others are
        return marker.map(m -> new DeclaredResource(object, instance.orElse(""), counter.orElse(""), window,
                name.orElse(""), method, upperAbs, upperCalc));
    }

    private Optional<String> argumentOf(String keyword) {
        return seek(keyword) ? scanner.argument() : Optional.empty();
    }

    private double numberOf(String keyword) {
        return seek(keyword) ? scanner.number() : 0.0;
    }

    /** Passes over tokens and comments up to and including the keyword; false at the end of the text. */
    private boolean seek(String keyword) {
        for (Optional<String> token = scanner.token(); token.isPresent(); token = scanner.token()) {
            if (token.get().equals(keyword)) {
                return true;
            }
            if (token.get().equals("/*")) {
                skipComment();
            }
        }
        return false;
    }

    private void skipComment() {
        Optional<String> token = scanner.token();
        while (token.isPresent() && !token.get().equals("*/")) {
            token = scanner.token();
        }
    }
}
