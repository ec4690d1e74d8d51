package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.ByteArrayOutputStream;
import java.math.BigDecimal;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import org.junit.jupiter.api.Test;

class MetricsTextTest {

    private static List<String> numbers(List<Double> values) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        MetricsText text = new MetricsText(MetricsFormat.CLASSIC, out);
        text.family("f", MetricsText.Type.GAUGE, "", "h");
        values.forEach(value -> text.sample("", value));
        text.finish();
        return out.toString(StandardCharsets.US_ASCII).lines().skip(2)
                .map(line -> line.substring("f ".length())).toList();
    }

    @Test
    void aNumberIsItsShortestTextWithoutAnExponent() {
        List<Double> values = new ArrayList<>(List.of(0.0, -0.0, 1.0, -1.0, 0.1, 0.002, 0.0009, 1e-7, Double.MIN_VALUE,
                9999999.5, 1e7, 1.25e9, 999999999999999.0, 1e15, 9007199254740993.0, 0x1p59, -0x1p63, 0x1p63, 1e22,
                Double.MAX_VALUE, 12345.678, 1e-3, 1760000000.0));
        new Random(1).doubles(20_000).forEach(part -> {
            values.add(Math.rint(part * 1e6) / 1e6);
            values.add(part * 1e9);
            values.add(part * 1e-9);
            values.add(Math.rint(part * 1e12));
        });
        assertEquals(values.stream()
                .map(v -> new BigDecimal(Double.toString(v)).stripTrailingZeros().toPlainString()).toList(),
                numbers(values));
    }

    @Test
    void whatIsNoNumberHasAWord() {
        assertEquals(List.of("NaN", "+Inf", "-Inf"),
                numbers(List.of(Double.NaN, Double.POSITIVE_INFINITY, Double.NEGATIVE_INFINITY)));
    }
}
