package com.quorin.sysmgt.tavl.LumetraAgent.text;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.Random;
import java.util.stream.DoubleStream;
import org.junit.jupiter.api.Test;

class DigitsTest {

    @Test
    void everyPercentageOfFourDecimalsHasItsShortestDigits() {
        for (int parts = 0; parts <= 1_000_000; parts++) {
            assertEquals(Double.toString(parts / 1e4), Digits.of(parts / 1e4));
        }
    }

    @Test
    void everyOtherNumberHasJavasOwnDigits() {
        DoubleStream edges = DoubleStream.of(-0.0, 0.00099, 1e-3, 9999999.9999, 1e7, 1e7 + 0.5, 1e18, Double.MIN_VALUE,
                Double.MAX_VALUE, Double.NaN, Double.POSITIVE_INFINITY, -12.5, -0.001, 1.00005, 0x1p53, 1760000000.5);
        DoubleStream random = new Random(1).doubles(50_000, -2e7, 2e7)
                .flatMap(v -> DoubleStream.of(v, v / 1e9, Math.rint(v), Math.rint(v * 1e4) / 1e4));
        DoubleStream.concat(edges, random).forEach(v -> assertEquals(Double.toString(v), Digits.of(v)));
    }
}
