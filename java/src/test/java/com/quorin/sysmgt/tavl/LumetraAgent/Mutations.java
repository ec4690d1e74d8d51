package com.quorin.sysmgt.tavl.LumetraAgent;

import java.io.ByteArrayOutputStream;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;
import java.util.Random;

/**
 * Bytes that are nearly right: some right ones with up to eight changes. The same ones in every run, and more of
 * them in a long one.
 */
public final class Mutations {

    private static final int MOST_CHANGES = 8;
    private static final int[] ODD_NUMBERS = {0, -1, 1, Integer.MAX_VALUE, Integer.MIN_VALUE, 1 << 24, 255};

    private final Random random;
    private final List<byte[]> right;
    private final List<byte[]> words;

    /**
     * Changes to these.
     *
     * @param words what is put in now and then
     */
    public Mutations(long seed, List<byte[]> right, List<byte[]> words) {
        random = new Random(seed);
        this.right = right;
        this.words = words;
    }

    public static Mutations ofTexts(long seed, List<String> right, String... words) {
        return new Mutations(seed, bytes(right), bytes(Arrays.asList(words)));
    }

    private static List<byte[]> bytes(List<String> texts) {
        return texts.stream().map(text -> text.getBytes(StandardCharsets.ISO_8859_1)).toList();
    }

    /** How many to try: so many in an ordinary run, a hundred times as many in a long one. */
    public static int often(int ordinary) {
        return "1".equals(System.getenv("LUMETRA_LONG")) ? 100 * ordinary : ordinary;
    }

    public byte[] next() {
        byte[] bytes = right.get(random.nextInt(right.size())).clone();
        for (int left = 1 + random.nextInt(MOST_CHANGES); left > 0; left--) {
            bytes = changed(bytes);
        }
        return bytes;
    }

    public String nextText() {
        return new String(next(), StandardCharsets.ISO_8859_1);
    }

    private byte[] changed(byte[] bytes) {
        int from = random.nextInt(bytes.length + 1);
        int length = Math.min(bytes.length - from, random.nextInt(16));
        switch (random.nextInt(6)) {
            case 0:
                return put(bytes, from, length, new byte[0]);
            case 1:
                return put(bytes, from, 0, Arrays.copyOfRange(bytes, from, from + length));
            case 2:
                return Arrays.copyOf(bytes, from);
            case 3:
                return words.isEmpty() ? bytes : put(bytes, from, 0, words.get(random.nextInt(words.size())));
            case 4:
                return put(bytes, from, Math.min(bytes.length - from, Integer.BYTES), number());
            default:
                return put(bytes, from, Math.min(bytes.length - from, 1), new byte[] {(byte) random.nextInt(256)});
        }
    }

    private byte[] number() {
        return ByteBuffer.allocate(Integer.BYTES).order(ByteOrder.LITTLE_ENDIAN)
                .putInt(ODD_NUMBERS[random.nextInt(ODD_NUMBERS.length)]).array();
    }

    /** Other bytes in the place of some. */
    private static byte[] put(byte[] bytes, int from, int length, byte[] other) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        out.write(bytes, 0, from);
        out.writeBytes(other);
        out.write(bytes, from + length, bytes.length - from - length);
        return out.toByteArray();
    }
}
