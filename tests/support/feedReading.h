#pragma once

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace obrin::test {

/// Reads bytes of the host feed in their order; throws when they end early.
class FeedReading {
public:
    explicit FeedReading(std::string_view bytes) : rest_(bytes) {}

    std::int32_t number() { return raw<std::int32_t>(); }
    std::int64_t longNumber() { return raw<std::int64_t>(); }
    double real() { return raw<double>(); }
    bool flag() { return raw<char>() != 0; }
    std::string text() {
        const auto length = static_cast<std::size_t>(number());
        return std::string(take(length));
    }
    bool atEnd() const { return rest_.empty(); }

private:
    template <class Value>
    Value raw() {
        Value value{};
        std::memcpy(&value, take(sizeof value).data(), sizeof value);
        return value;
    }
    std::string_view take(std::size_t length) {
        if (length > rest_.size())
            throw std::out_of_range("the bytes end early");
        const std::string_view taken = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return taken;
    }

    std::string_view rest_;
};

struct FedResource {
    std::int32_t rid = 0;
    std::string object, instance, counter, name;
    std::int32_t mountPoint = 0;
    double value = 0;
    bool valueRead = false;
    double capacity = 0;
    bool capacityRead = false;
    double ownCapacity = 0;
    std::int32_t method = 0;
    double lower = 0, upper = 0;
    std::int32_t reached = 0;
    double windowHours = 0;
    std::int32_t slots = 0, usable = 0;
    std::int64_t forecastTime = 0;
    std::string model;
    double hours = 0;
    bool pending = false;
    double level = 0;
    std::int32_t patience = 0;
    std::int64_t episodeSince = 0;
    std::int32_t watched = 0;
};

struct FedLeftOut {
    std::string what, why;
    std::int32_t kind = 0;
    std::string rule;

    bool operator==(const FedLeftOut&) const = default;
};

struct FedEpisode {
    std::int32_t rule = 0;
    std::int64_t onset = 0, firstEvent = 0, end = 0;
    std::int32_t outcome = 0;
    std::int64_t announcedAtOnset = 0, announcedAtEvent = 0;
    double onsetValue = 0, highest = 0;
    std::vector<double> errors;
};

inline FedEpisode readEpisode(FeedReading& in) {
    FedEpisode e;
    e.rule = in.number();
    e.onset = in.longNumber();
    e.firstEvent = in.longNumber();
    e.end = in.longNumber();
    e.outcome = in.number();
    e.announcedAtOnset = in.longNumber();
    e.announcedAtEvent = in.longNumber();
    e.onsetValue = in.real();
    e.highest = in.real();
    for (std::int32_t i = in.number(); i > 0; --i)
        e.errors.push_back(in.real());
    return e;
}

struct FedEnded {
    std::int64_t number = 0;
    std::int32_t rid = 0;
    std::string name, instance;
    FedEpisode episode;
};

struct FedState {
    std::int32_t version = 0;
    std::int64_t serial = 0;
    std::int32_t kind = 0;
    std::int64_t cycles = 0;
    std::int64_t time = 0;
    std::int64_t clockSteps = 0;
    double sampling = 0, forecast = 0, writing = 0, total = 0;
    std::int64_t archiveBytes = 0;
    std::int64_t resumedSamples = 0;
    std::int32_t resumedResources = 0;
    std::vector<std::string> files;
    std::vector<std::int32_t> numbers;
    bool awaitsDisks = false;
    std::vector<FedLeftOut> leftOut;
    std::vector<FedResource> resources;
    std::vector<FedEnded> ended;
};

inline FedState readState(std::string_view bytes) {
    FeedReading in(bytes);
    FedState state;
    state.version = in.number();
    state.serial = in.longNumber();
    state.kind = in.number();
    state.cycles = in.longNumber();
    if (state.kind != 1)
        return state;
    state.time = in.longNumber();
    state.clockSteps = in.longNumber();
    state.sampling = in.real();
    state.forecast = in.real();
    state.writing = in.real();
    state.total = in.real();
    state.archiveBytes = in.longNumber();
    state.resumedSamples = in.longNumber();
    state.resumedResources = in.number();
    for (int i = 0; i < 5; ++i)
        state.files.push_back(in.text());
    for (int i = 0; i < 5; ++i)
        state.numbers.push_back(in.number());
    state.awaitsDisks = in.flag();
    for (std::int32_t i = in.number(); i > 0; --i) {
        FedLeftOut left;
        left.what = in.text();
        left.why = in.text();
        left.kind = in.number();
        left.rule = in.text();
        state.leftOut.push_back(std::move(left));
    }
    for (std::int32_t i = in.number(); i > 0; --i) {
        FedResource r;
        r.rid = in.number();
        r.object = in.text();
        r.instance = in.text();
        r.counter = in.text();
        r.name = in.text();
        r.mountPoint = in.number();
        r.value = in.real();
        r.valueRead = in.flag();
        r.capacity = in.real();
        r.capacityRead = in.flag();
        r.ownCapacity = in.real();
        r.method = in.number();
        r.lower = in.real();
        r.upper = in.real();
        r.reached = in.number();
        r.windowHours = in.real();
        r.slots = in.number();
        r.usable = in.number();
        r.forecastTime = in.longNumber();
        r.model = in.text();
        r.hours = in.real();
        r.pending = in.flag();
        r.level = in.real();
        r.patience = in.number();
        r.episodeSince = in.longNumber();
        r.watched = in.number();
        state.resources.push_back(r);
    }
    for (std::int32_t i = in.number(); i > 0; --i) {
        FedEnded e;
        e.number = in.longNumber();
        e.rid = in.number();
        e.name = in.text();
        e.instance = in.text();
        e.episode = readEpisode(in);
        state.ended.push_back(e);
    }
    if (!in.atEnd())
        throw std::out_of_range("there are more bytes than a state has");
    return state;
}

/// A row of texts, numbers and flags, all as text.
using FedRow = std::vector<std::string>;

struct FedCounters {
    std::vector<FedRow> counters, reports;
};

inline FedCounters readCounters(std::string_view bytes) {
    FeedReading in(bytes);
    FedCounters found;
    in.number();
    for (std::int32_t i = in.number(); i > 0; --i) {
        FedRow row;
        for (int text = 0; text < 4; ++text)
            row.push_back(in.text());
        row.push_back(std::to_string(static_cast<int>(in.real())));
        row.emplace_back(in.flag() ? "whole" : "");
        row.push_back(in.text());
        row.push_back(in.text());
        row.emplace_back(in.flag() ? "absent" : "");
        found.counters.push_back(row);
    }
    for (std::int32_t i = in.number(); i > 0; --i) {
        FedRow row;
        for (int text = 0; text < 3; ++text)
            row.push_back(in.text());
        found.reports.push_back(row);
    }
    if (!in.atEnd())
        throw std::out_of_range("there are more bytes than counters have");
    return found;
}

using FedCurve = std::vector<std::pair<double, double>>;

struct FedCurves {
    FedCurve samples;
    std::int64_t forecastTime = 0;
    std::string model;
    double hours = 0, level = 0;
    FedCurve forecast;
    std::vector<std::pair<std::int64_t, std::int64_t>> announcements;
};

inline FedCurves readCurves(std::string_view bytes) {
    FeedReading in(bytes);
    FedCurves curves;
    const auto read = [&in](FedCurve& curve) {
        for (std::int32_t i = in.number(); i > 0; --i) {
            const double time = in.real();
            curve.emplace_back(time, in.real());
        }
    };
    in.number();
    read(curves.samples);
    curves.forecastTime = in.longNumber();
    curves.model = in.text();
    curves.hours = in.real();
    curves.level = in.real();
    read(curves.forecast);
    for (std::int32_t i = in.number(); i > 0; --i) {
        const std::int64_t time = in.longNumber();
        curves.announcements.emplace_back(time, in.longNumber());
    }
    if (!in.atEnd())
        throw std::out_of_range("there are more bytes than curves have");
    return curves;
}

} // namespace obrin::test
