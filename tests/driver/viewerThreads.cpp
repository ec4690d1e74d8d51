#include "tests/driver/viewerThreads.h"

#include "acquisition/textForms.h"
#include "tests/support/fakeJavaEnvironment.h"
#include "trendviewer/trendViewer.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <random>
#include <utility>

namespace obrin::test {
namespace {

using std::chrono::milliseconds;

constexpr const char* listClass = "com/quorin/sysmgt/tavl/LumetraAgent/TrendReader$Values";
constexpr long looksBetweenKeeps = 40;
constexpr long pausesInAKeep = 12; // three an attempt: four threads went without it
constexpr long aFewLooks = 5;
constexpr jint forecastTokens = 400; // 200 points, always

std::atomic<long> pauses{0};

void restFor(milliseconds time) {
    std::this_thread::sleep_for(time);
}

} // namespace

class ViewerThreads::Viewer {
public:
    Viewer(const std::atomic<bool>& ended, const std::atomic<bool>& awaited, unsigned seed, bool keeps,
           Tell tell)
        : ended_(ended), awaited_(awaited), random_(seed), keeps_(keeps), tell_(tell) {}

    void run() {
        FakeJavaEnvironment java;
        java.keepRecords(false);
        java.declareMethod(listClass, "AppendCompUnicode", "(Ljava/lang/String;)V", false);
        java.declareMethod(listClass, "AppendInt", "(I)V", false);
        java.declareMethod(listClass, "AppendFloat", "(F)V", false);
        java.onCall([this](const JavaCall& call) { given_.push_back(call); });
        java_ = &java;
        list_ = java.makeObject(listClass);
        for (; !ended_; ++looks_)
            look();
        java.env()->DeleteLocalRef(list_);
        if (java.localReferences() + java.globalReferences() + java.openFrames() +
                java.unreleasedCharacters() !=
            0)
            complain("references are left over");
        for (const auto& misuse : java.misuses())
            complain(misuse);
    }

    long looks() const { return looks_; }
    const std::vector<std::string>& complaints() const { return complaints_; }
    const std::map<std::pair<std::string, std::string>, long>& results() const { return results_; }

private:
    /// A text for as long as it lives.
    class Text {
    public:
        Text(FakeJavaEnvironment& java, const std::string& text) : java_(java), text_(java.makeText(text)) {}
        Text(const Text&) = delete;
        Text& operator=(const Text&) = delete;
        ~Text() { java_.env()->DeleteLocalRef(text_); }
        jstring get() const { return text_; }

    private:
        FakeJavaEnvironment& java_;
        jstring text_;
    };

    unsigned upTo(unsigned most) { return std::uniform_int_distribution<unsigned>(0, most)(random_); }

    void complain(const std::string& what) {
        if (complaints_.size() < 20)
            complaints_.push_back("viewer: " + what);
    }

    void count(const char* method, jint result, bool read = false) {
        const std::string answer = read ? "read" : std::to_string(result);
        if (++results_[{method, answer}] == 1)
            tell_(std::string("answer\t") + method + "\t" + answer);
        if (java_->pendingException()) {
            complain(std::string(method) + " returned with " + *java_->pendingException());
            java_->env()->ExceptionClear();
        }
    }

    /// Whether `result` is one that the method may give while it hands over nothing.
    void expectNothing(const char* method, jint result, std::initializer_list<jint> documented) {
        count(method, result);
        if (std::find(documented.begin(), documented.end(), result) == documented.end())
            complain(std::string(method) + " gave " + std::to_string(result));
        if (!given_.empty())
            complain(std::string(method) + " gave " + std::to_string(result) + " and called back");
    }

    /// One look at a resource, mostly without the lock: who waits for it waits for whole seconds.
    void look() {
        const auto [name, instance] = anyResource();
        const Text javaName(*java_, name);
        const Text javaInstance(*java_, cleanfilename(instance));
        const bool keeping = keeps_ && looks_ % looksBetweenKeeps == looksBetweenKeeps - 1;
        const bool locked = keeping || awaited_ || upTo(29) == 0; // what is awaited asks everything
        const bool mayHold = locked && readHeadline(javaName.get(), javaInstance.get());
        readLimit(javaName.get(), javaInstance.get());
        readCurve(javaName.get(), javaInstance.get(), "PRD");
        readCurve(javaName.get(), javaInstance.get(), "SMP");
        if (keeping && mayHold)
            keepLock();
        if (locked || upTo(9) == 0)
            unlock();
        restFor(milliseconds(upTo(10))); // for the agent's sake, which shares the processors
    }

    std::pair<std::string, std::string> anyResource() {
        given_.clear();
        const jint result =
            Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetDescriptors(
                java_->env(), nullptr, list_);
        if (result != 0) {
            expectNothing("descriptors", result, {1});
            return {"none", "none"};
        }
        count("descriptors", result);
        if (given_.empty() || given_.size() % 2 != 0) {
            complain("descriptors gave " + std::to_string(given_.size()) + " texts");
            return {"none", "none"};
        }
        const std::size_t at = upTo(static_cast<unsigned>(given_.size() / 2 - 1)) * 2;
        return {given_[at].arguments[0], given_[at + 1].arguments[0]};
    }

    /// Whether the lock may be held now.
    bool readHeadline(jstring name, jstring instance) {
        given_.clear();
        const jint result =
            Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerLockAndGetTimeStampLabel(
                java_->env(), nullptr, name, instance, list_, list_, list_);
        if (result != 0) {
            expectNothing("label", result, {1, 2, 3, 5});
            return result == 3 || result == 5;
        }
        count("label", result);
        if (given_.size() != 3 || given_[0].method != "AppendInt" ||
            given_[1].method != "AppendCompUnicode" || given_[2].method != "AppendFloat")
            complain("label called back in another order");
        else if (!given_[1].arguments[0].starts_with("Algorithm: "))
            complain("label of a script that is not whole: " + given_[1].arguments[0]);
        return true;
    }

    void readLimit(jstring name, jstring instance) {
        given_.clear();
        const jint result = Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetLimit(
            java_->env(), nullptr, name, instance, list_);
        if (result != 0)
            return expectNothing("limit", result, {1, 3});
        count("limit", result);
        if (given_.size() != 1 || given_[0].method != "AppendInt")
            complain("limit called back otherwise");
    }

    void readCurve(jstring name, jstring instance, const char* kind) {
        given_.clear();
        const Text javaKind(*java_, kind);
        const jint result = Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetXYPairs(
            java_->env(), nullptr, name, instance, javaKind.get(), list_);
        if (given_.empty())
            return expectNothing(kind, result, {1, 3});
        count(kind, result, true);
        const bool forecast = std::string(kind) == "PRD";
        if (result != static_cast<jint>(given_.size()) ||
            (forecast ? result != forecastTokens : result % 2 != 0))
            complain(std::string(kind) + " gave " + std::to_string(result) + " and " +
                     std::to_string(given_.size()) + " tokens");
    }

    void unlock() {
        given_.clear();
        expectNothing("unlock",
                      Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerUnlockFiles(
                          java_->env(), nullptr),
                      {0});
    }

    void keepLock() {
        count("kept", 0);
        const long enough = pauses + pausesInAKeep;
        while (!ended_ && !awaited_ && pauses < enough)
            restFor(milliseconds(1));
    }

    const std::atomic<bool>& ended_;
    const std::atomic<bool>& awaited_;
    std::minstd_rand random_;
    bool keeps_;
    Tell tell_;
    std::atomic<long> looks_{0};
    FakeJavaEnvironment* java_ = nullptr;
    jobject list_ = nullptr;
    std::vector<JavaCall> given_; ///< calls of the method in hand
    std::vector<std::string> complaints_;
    std::map<std::pair<std::string, std::string>, long> results_;
};

ViewerThreads::ViewerThreads(long count, unsigned seed, Tell tell) {
    for (long i = 0; i < count; ++i)
        viewers_.push_back(std::make_unique<Viewer>(ended_, awaited_, seed + static_cast<unsigned>(i),
                                                    i == 0 && count > 1, tell));
    for (auto& viewer : viewers_)
        threads_.emplace_back([&viewer] { viewer->run(); });
}

ViewerThreads::~ViewerThreads() {
    end();
}

void ViewerThreads::awaitLooks() {
    awaited_ = true;
    std::vector<long> enough;
    std::transform(viewers_.begin(), viewers_.end(), std::back_inserter(enough),
                   [](const auto& viewer) { return viewer->looks() + aFewLooks; });
    for (std::size_t i = 0; i < viewers_.size(); ++i)
        while (viewers_[i]->looks() < enough[i])
            restFor(milliseconds(1));
    awaited_ = false;
}

void ViewerThreads::paused() {
    ++pauses;
}

std::vector<std::string> ViewerThreads::end() {
    ended_ = true;
    for (auto& thread : threads_)
        thread.join();
    threads_.clear();
    std::map<std::pair<std::string, std::string>, long> results;
    std::vector<std::string> lines;
    for (const auto& viewer : viewers_) {
        for (const auto& [what, count] : viewer->results())
            results[what] += count;
        for (const auto& complaint : viewer->complaints())
            lines.push_back("misuse\t" + complaint);
    }
    for (const auto& [what, count] : results)
        lines.push_back("viewer\t" + what.first + "\t" + what.second + "\t" + std::to_string(count));
    return lines;
}

} // namespace obrin::test
