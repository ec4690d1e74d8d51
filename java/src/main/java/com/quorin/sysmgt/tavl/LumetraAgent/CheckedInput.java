package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.HashMap;
import java.util.Map;

/** One input of the declarations as the agent reads it, with the places of its parts. */
final class CheckedInput {

    private static final int FIELD = 127;

    private final int place;
    private final Map<String, String> arguments = new HashMap<>();
    private final Map<String, Double> numbers = new HashMap<>();
    private final Map<String, Integer> places = new HashMap<>();

    /**
     * Starts an input.
     *
     * @param place where it stands
     */
    CheckedInput(int place) {
        this.place = place;
    }

    /**
     * Takes an argument.
     *
     * @param keyword what it belongs to
     * @param value   what the agent keeps of it
     * @param at      where it stands
     */
    void put(String keyword, String value, int at) {
        arguments.put(keyword, value);
        places.put(keyword, at);
    }

    /**
     * Takes a number.
     *
     * @param keyword what it belongs to
     * @param value   what the agent reads
     * @param at      where it stands
     */
    void put(String keyword, double value, int at) {
        numbers.put(keyword, value);
        places.put(keyword, at);
    }

    /**
     * Where the input stands.
     *
     * @return the place
     */
    int place() {
        return place;
    }

    /**
     * Where the value of a keyword stands.
     *
     * @param keyword the keyword
     * @return the place
     */
    int place(String keyword) {
        return places.get(keyword);
    }

    /**
     * The object.
     *
     * @return one character for each byte
     */
    String object() {
        return arguments.get("FindObject");
    }

    /**
     * The instance.
     *
     * @return one character for each byte
     */
    String instance() {
        return arguments.get("FindInstance");
    }

    /**
     * The counter.
     *
     * @return one character for each byte
     */
    String counter() {
        return arguments.get("FindCounter");
    }

    /**
     * The display name.
     *
     * @return one character for each byte
     */
    String name() {
        return arguments.get("NameIs");
    }

    /**
     * The window.
     *
     * @return hours; negative asks for the automatic one
     */
    double window() {
        return numbers.get("WindowSize");
    }

    /**
     * The capacity to reckon with.
     *
     * @return in the resource's own unit; 0 or less takes the measured one
     */
    double upperLimit() {
        return numbers.get("UpperLimitAbs");
    }

    /**
     * The analytical method.
     *
     * @return its number
     */
    int method() {
        return numbers.get("AnalyticalMethod").intValue();
    }

    /**
     * Whether the input stands for all disks.
     *
     * @return true for the object of disks
     */
    boolean isDisk() {
        return object().equals(Counters.DISK);
    }

    /**
     * Whether the agent forecasts it.
     *
     * @return true when something counts it and its method is none that switches forecasts off
     */
    boolean isForecast() {
        return method() != 0 && DeclarationJudge.isCounted(this);
    }

    /**
     * What an argument leaves in its field.
     *
     * @param argument the argument
     * @return its first 127 bytes, up to a zero byte
     */
    static String cut(String argument) {
        int nul = argument.indexOf('\0');
        int end = nul < 0 ? argument.length() : nul;
        return argument.substring(0, Math.min(FIELD, end));
    }
}
