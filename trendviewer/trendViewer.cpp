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
        if (const auto script = readOwnFile(path))
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
    const auto script = readOwnFile(path);
    if (!script)
        return cannotOpen;
    *limit = parseTrendLimit(*script).value_or(0);
    return success;
}

std::int32_t slirpXYPairs(const std::string& path, const std::function<bool(const char*)>& append) {
    const auto curve = readOwnFile(path);
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

/// A method by which the caller's objects take a value.
struct Append {
    const char* name;
    const char* signature;
};
constexpr Append appendText = {"AppendCompUnicode", "(Ljava/lang/String;)V"};
constexpr Append appendInt = {"AppendInt", "(I)V"};
constexpr Append appendFloat = {"AppendFloat", "(F)V"};

/// One of the caller's objects and its method. What is false leaves an exception pending.
class Receiver {
public:
    /// `name` is the argument's, for messages.
    Receiver(JNIEnv* env, jobject object, const char* name, const Append& append)
        : env_(env), object_(object), name_(name), append_(append) {}

    bool prepare() {
        if (!isThere())
            return false;
        const Local<jclass> type(env_, env_->GetObjectClass(object_));
        return find(type.get());
    }

    bool isThere() const {
        if (object_ == nullptr)
            throwJava(env_, "java/lang/NullPointerException", (name_ + " must not be null").c_str());
        return object_ != nullptr;
    }

    bool isOf(jclass type) const {
        const bool is = env_->IsInstanceOf(object_, type) == JNI_TRUE;
        if (!is)
            throwJava(env_, "java/lang/IllegalArgumentException",
                      (name_ + " must be of the class of textOut").c_str());
        return is;
    }

    /// Looks for the method in the object's class.
    bool find(jclass type) {
        method_ = env_->GetMethodID(type, append_.name, append_.signature);
        return method_ != nullptr;
    }

    bool take(const char* text) const {
        const Local<jstring> copy(env_, makeJavaText(env_, text));
        return copy.get() != nullptr && call(copy.get());
    }
    bool take(std::int32_t number) const { return call(jint{number}); }
    bool take(float number) const { return call(jfloat{number}); }

private:
    template <class Value>
    bool call(Value value) const {
        env_->CallVoidMethod(object_, method_, value);
        return env_->ExceptionCheck() == JNI_FALSE;
    }

    JNIEnv* env_;
    jobject object_;
    std::string name_;
    Append append_;
    jmethodID method_ = nullptr;
};

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
    Receiver receiver(env, list, "list", appendText);
    if (!receiver.prepare())
        return thrown;
    for (const auto& [name, instance] : descriptors)
        if (!receiver.take(name.c_str()) || !receiver.take(instance.c_str()))
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

/// The three objects that a headline goes to.
class HeadlineReceiver {
public:
    HeadlineReceiver(JNIEnv* env, jobject intOut, jobject textOut, jobject floatOut)
        : env_(env), textOut_(textOut), time_(env, intOut, "intOut", appendInt),
          text_(env, textOut, "textOut", appendText), level_(env, floatOut, "floatOut", appendFloat) {}

    /// False with an exception pending when they are not what they should be.
    bool prepare() {
        if (!time_.isThere() || !text_.isThere() || !level_.isThere())
            return false;
        const Local<jclass> type(env_, env_->GetObjectClass(textOut_));
        // A method found on one class and called on an object of another would end the Java machine.
        return time_.isOf(type.get()) && level_.isOf(type.get()) && time_.find(type.get()) &&
               text_.find(type.get()) && level_.find(type.get());
    }

    bool take(std::int64_t timestamp, const std::string& text, float level) const {
        return time_.take(clampToInt32(timestamp)) && text_.take(text.c_str()) && level_.take(level);
    }

private:
    JNIEnv* env_;
    jobject textOut_;
    Receiver time_;
    Receiver text_;
    Receiver level_;
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
    Receiver receiver(env, intOut, "intOut", appendInt);
    if (!receiver.prepare())
        return thrown;
    std::int32_t limit = 0;
    const std::int32_t result = findLimit(scriptPath(*home, Names(env, name, instance)), &limit);
    if (result == success && !receiver.take(limit))
        return thrown;
    return result;
}

jint getXYPairs(JNIEnv* env, jstring name, jstring instance, jstring kind, jobject list) {
    const auto home = homeOfResources();
    if (!home)
        return noResources;
    Receiver receiver(env, list, "list", appendText);
    if (!receiver.prepare())
        return thrown;
    const Names names(env, name, instance);
    return slirpXYPairs(curvePath(*home, names, takeJavaText(env, kind)),
                        [&](const char* word) { return receiver.take(word); });
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
