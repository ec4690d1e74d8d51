#include "trendviewer/trendViewer.h"

#include "agent/agentState.h"
#include "prediction/trendFileFormat.h"
#include "resources/resourceRecords.h"
#include "support/jniSupport.h"
#include "support/textScanner.h"
#include "support/wholeFile.h"
#include "trendviewer/trendFiles.h"

#include <exception>
#include <new>
#include <optional>
#include <utility>
#include <vector>

namespace obrin {
namespace {

constexpr std::int32_t success = 0;
constexpr std::int32_t noResources = 1;
constexpr std::int32_t cannotOpen = 3;
constexpr jint thrown = cannotOpen; ///< Java sees the exception and not the result

} // namespace

std::int32_t lockFindTimeStampLabel(const std::string& path, std::int64_t* timestamp, std::string* text,
                                    float* level) {
    TrendLabel label;
    const std::int32_t locked = trendViewerLockFiles();
    std::int32_t result = locked;
    if (locked == success) {
        if (const auto script = readWholeFile(path))
            label = parseTrendLabel(*script);
        else
            result = cannotOpen;
    }
    *timestamp = label.timeStamp;
    *text = std::move(label.text);
    *level = label.level;
    return result;
}

std::int32_t findLimit(const std::string& path, std::int32_t* limit) {
    *limit = 0;
    const auto script = readWholeFile(path);
    if (!script)
        return cannotOpen;
    *limit = parseTrendLimit(*script).value_or(0);
    return success;
}

std::int32_t slirpXYPairs(const std::string& path, const std::function<bool(const char*)>& append) {
    const auto curve = readWholeFile(path);
    if (!curve)
        return cannotOpen;
    TextScanner scanner(*curve);
    auto word = scanner.word();
    // The end of the file is noticed behind the white space that follows a word: behind the first one that
    // means that there are no pairs, behind a later one that it was the last.
    scanner.skipWhiteSpace();
    if (scanner.atEnd())
        return 0;
    std::int32_t taken = 0;
    for (; word; word = scanner.word()) {
        if (!append(std::string(*word).c_str()))
            break;
        ++taken;
    }
    return taken;
}

namespace {

/// A local reference that is gone when its owner goes.
template <class Reference>
class Local {
public:
    Local(JNIEnv* env, Reference reference) : env_(env), reference_(reference) {}
    Local(const Local&) = delete;
    Local& operator=(const Local&) = delete;
    ~Local() { env_->DeleteLocalRef(reference_); }

    Reference get() const { return reference_; }

private:
    JNIEnv* env_;
    Reference reference_;
};

/// The work's result; a C++ exception becomes a Java one.
template <class Work>
jint guarded(JNIEnv* env, Work work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        throwJava(env, "java/lang/OutOfMemoryError", "no native memory for the trend viewer");
    } catch (const std::exception& failure) {
        throwJava(env, "java/lang/InternalError", failure.what());
    } catch (...) {
        throwJava(env, "java/lang/InternalError", "unknown failure of the trend viewer");
    }
    return thrown;
}

/// False, with a NullPointerException that names it, for an absent argument.
bool isThere(JNIEnv* env, jobject argument, const char* name) {
    if (argument == nullptr)
        throwJava(env, "java/lang/NullPointerException", (std::string(name) + " must not be null").c_str());
    return argument != nullptr;
}

/// False, with an IllegalArgumentException that names it, for an argument of another class.
bool isOf(JNIEnv* env, jclass type, jobject argument, const char* name) {
    const bool is = env->IsInstanceOf(argument, type) == JNI_TRUE;
    if (!is)
        throwJava(env, "java/lang/IllegalArgumentException",
                  (std::string(name) + " must be of the class of textOut").c_str());
    return is;
}

// The methods of the caller's objects. Each finder gives null with an exception pending for a method that is
// missing, each call is false when an exception is pending afterwards.

jmethodID findAppendText(JNIEnv* env, jclass type) {
    return env->GetMethodID(type, "AppendCompUnicode", "(Ljava/lang/String;)V");
}

jmethodID findAppendInt(JNIEnv* env, jclass type) {
    return env->GetMethodID(type, "AppendInt", "(I)V");
}

jmethodID findAppendFloat(JNIEnv* env, jclass type) {
    return env->GetMethodID(type, "AppendFloat", "(F)V");
}

bool appendText(JNIEnv* env, jobject receiver, jmethodID method, const char* text) {
    const Local<jstring> copy(env, makeJavaText(env, text));
    if (copy.get() == nullptr)
        return false;
    env->CallVoidMethod(receiver, method, copy.get());
    return env->ExceptionCheck() == JNI_FALSE;
}

bool appendInt(JNIEnv* env, jobject receiver, jmethodID method, std::int32_t number) {
    env->CallVoidMethod(receiver, method, jint{number});
    return env->ExceptionCheck() == JNI_FALSE;
}

bool appendFloat(JNIEnv* env, jobject receiver, jmethodID method, float number) {
    env->CallVoidMethod(receiver, method, jfloat{number});
    return env->ExceptionCheck() == JNI_FALSE;
}

/// Display name and instance of every link in chain order.
std::vector<std::pair<std::string, std::string>> copyDescriptors() {
    std::vector<std::pair<std::string, std::string>> descriptors;
    const MutexLock lock(chainLock);
    const Link* link = pResourceClasp == nullptr ? nullptr : pResourceClasp->pFirstLink;
    for (; link != nullptr; link = link->pNextLink)
        descriptors.emplace_back(link->NameIs.view(), link->Descriptor1.view());
    return descriptors;
}

jint getDescriptors(JNIEnv* env, jobject list) {
    const auto descriptors = copyDescriptors();
    if (descriptors.empty())
        return noResources;
    if (!isThere(env, list, "list"))
        return thrown;
    const Local<jclass> type(env, env->GetObjectClass(list));
    const jmethodID method = findAppendText(env, type.get());
    if (method == nullptr)
        return thrown;
    for (const auto& [name, instance] : descriptors)
        if (!appendText(env, list, method, name.c_str()) || !appendText(env, list, method, instance.c_str()))
            return thrown;
    return success;
}

/// The data directory of a run that has resources.
std::optional<std::string> homeOfResources() {
    return getFirstLink() == nullptr ? std::nullopt : getHomeDirectory();
}

/// What a resource's files are called by, as Java gives it.
struct Names {
    std::string name;
    std::string instance;

    Names(JNIEnv* env, jstring javaName, jstring javaInstance)
        : name(takeJavaText(env, javaName)), instance(takeJavaText(env, javaInstance)) {}
};

// An empty path, which nothing opens, stands for a file that would lie outside the home directory.

std::string scriptPath(const std::string& home, const Names& of) {
    return trendFilesStayAtHome(of.name, of.instance) ? trendFileNames(home, of.name, of.instance).script
                                                      : std::string();
}

std::string curvePath(const std::string& home, const Names& of, const std::string& kind) {
    return trendFilesStayAtHome(of.name, of.instance) && trendFilesStayAtHome(kind, {})
               ? home + of.name + of.instance + "BM" + kind + ".gnp"
               : std::string();
}

/// The three objects that a headline goes to, and their methods.
class HeadlineReceiver {
public:
    HeadlineReceiver(JNIEnv* env, jobject intOut, jobject textOut, jobject floatOut)
        : env_(env), intOut_(intOut), textOut_(textOut), floatOut_(floatOut) {}

    /// False with an exception pending when they are not what they should be.
    bool prepare() {
        if (!isThere(env_, intOut_, "intOut") || !isThere(env_, textOut_, "textOut") ||
            !isThere(env_, floatOut_, "floatOut"))
            return false;
        const Local<jclass> type(env_, env_->GetObjectClass(textOut_));
        // A method found on one class and called on an object of another would end the Java machine.
        return isOf(env_, type.get(), intOut_, "intOut") && isOf(env_, type.get(), floatOut_, "floatOut") &&
               (appendInt_ = findAppendInt(env_, type.get())) != nullptr &&
               (appendText_ = findAppendText(env_, type.get())) != nullptr &&
               (appendFloat_ = findAppendFloat(env_, type.get())) != nullptr;
    }

    bool take(std::int64_t timestamp, const std::string& text, float level) {
        return appendInt(env_, intOut_, appendInt_, clampToInt32(timestamp)) &&
               appendText(env_, textOut_, appendText_, text.c_str()) &&
               appendFloat(env_, floatOut_, appendFloat_, level);
    }

private:
    JNIEnv* env_;
    jobject intOut_;
    jobject textOut_;
    jobject floatOut_;
    jmethodID appendInt_ = nullptr;
    jmethodID appendText_ = nullptr;
    jmethodID appendFloat_ = nullptr;
};

jint lockAndGetTimeStampLabel(JNIEnv* env, jstring name, jstring instance, HeadlineReceiver receiver) {
    const auto home = homeOfResources();
    if (!home)
        return noResources;
    if (!receiver.prepare())
        return thrown;
    const std::string path = scriptPath(*home, Names(env, name, instance));
    std::int64_t timestamp = 0;
    std::string text;
    float level = 0.0F;
    const std::int32_t result = lockFindTimeStampLabel(path, &timestamp, &text, &level);
    if (result == success && !receiver.take(timestamp, text, level))
        return thrown;
    return result;
}

jint getLimit(JNIEnv* env, jstring name, jstring instance, jobject intOut) {
    const auto home = homeOfResources();
    if (!home)
        return noResources;
    if (!isThere(env, intOut, "intOut"))
        return thrown;
    const Local<jclass> type(env, env->GetObjectClass(intOut));
    const jmethodID method = findAppendInt(env, type.get());
    if (method == nullptr)
        return thrown;
    std::int32_t limit = 0;
    const std::int32_t result = findLimit(scriptPath(*home, Names(env, name, instance)), &limit);
    if (result == success && !appendInt(env, intOut, method, limit))
        return thrown;
    return result;
}

jint getXYPairs(JNIEnv* env, jstring name, jstring instance, jstring kind, jobject list) {
    const auto home = homeOfResources();
    if (!home)
        return noResources;
    if (!isThere(env, list, "list"))
        return thrown;
    const Local<jclass> type(env, env->GetObjectClass(list));
    const jmethodID method = findAppendText(env, type.get());
    if (method == nullptr)
        return thrown;
    const Names names(env, name, instance);
    return slirpXYPairs(curvePath(*home, names, takeJavaText(env, kind)),
                        [&](const char* word) { return appendText(env, list, method, word); });
}

} // namespace
} // namespace obrin

extern "C" {

JNIEXPORT jint JNICALL Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetDescriptors(
    JNIEnv* env, jobject, jobject list) {
    return obrin::guarded(env, [&] { return obrin::getDescriptors(env, list); });
}

JNIEXPORT jint JNICALL
Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerLockAndGetTimeStampLabel(
    JNIEnv* env, jobject, jstring name, jstring instance, jobject intOut, jobject textOut, jobject floatOut) {
    return obrin::guarded(env, [&] {
        return obrin::lockAndGetTimeStampLabel(env, name, instance, {env, intOut, textOut, floatOut});
    });
}

JNIEXPORT jint JNICALL Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetLimit(
    JNIEnv* env, jobject, jstring name, jstring instance, jobject intOut) {
    return obrin::guarded(env, [&] { return obrin::getLimit(env, name, instance, intOut); });
}

JNIEXPORT jint JNICALL Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetXYPairs(
    JNIEnv* env, jobject, jstring name, jstring instance, jstring kind, jobject list) {
    return obrin::guarded(env, [&] { return obrin::getXYPairs(env, name, instance, kind, list); });
}

JNIEXPORT jint JNICALL
Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerUnlockFiles(JNIEnv*, jobject) {
    return obrin::trendViewerUnlockFiles();
}
}
