// Saving and loading while the system fails, and while the machine does.
//
// This program stands in front of the system's calls and of operator new: it counts them, lets them fail, and
// writes down what a save asks of the disk.

#include "koImage/packet/testing.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

/// Which of the calls that are counted fails.
struct Plan {
    long failAt = -1;  // the how-manieth
    bool everAfter = false;
    int reason = 0;                    // errno; 0: it does half of what it was asked to
    std::size_t diskBytes = SIZE_MAX;  // so many bytes can be written, then none
    long calls = 0;

    bool fails()
    {
        long const call = calls++;
        return failAt >= 0 && (everAfter ? call >= failAt : call == failAt);
    }
};

std::atomic<bool> watching = false;
Plan systemPlan;
Plan memoryPlan;
std::atomic<long> liveBlocks = 0;
std::atomic<std::int64_t> liveBytes = 0;
std::atomic<std::int64_t> mostBytes = 0;  // since a test set it to liveBytes

/// What a save did to the disk, in order.
struct Operation {
    enum Kind { Create, Write, Sync, Link, Rename, SyncFolder } kind;
    int file = -1;
    std::string name = {};
    std::string content = {};  // of a write; the new name of a rename
};
std::vector<Operation> operations;

template <class Function>
Function* systems(char const* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// True, with errno set, where the plan has the call fail.
bool callFails()
{
    if (!watching || !systemPlan.fails() || systemPlan.reason == 0)
        return false;
    errno = systemPlan.reason;
    return true;
}

/// How much of so many bytes the call may move.
std::size_t allowed(std::size_t bytes)
{
    bool const halves = watching && systemPlan.reason == 0 && systemPlan.failAt >= 0 &&
                        (systemPlan.everAfter ? systemPlan.calls > systemPlan.failAt
                                              : systemPlan.calls == systemPlan.failAt + 1);
    return halves ? (bytes + 1) / 2 : bytes;
}

void note(Operation::Kind kind, int file, std::string_view name = {}, std::string_view content = {})
{
    if (!watching)
        return;
    watching = false;  // what the notes take does not count
    operations.push_back({kind, file, std::string(name), std::string(content)});
    watching = true;
}

bool isFolder(int file)
{
    struct stat status;
    return fstat(file, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

extern "C" {

int openat(int folder, char const* name, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    auto const mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (callFails())
        return -1;
    int const file = systems<int(int, char const*, int, ...)>("openat")(folder, name, flags, mode);
    if (file >= 0)
        note(Operation::Create, file, (flags & O_TMPFILE) == O_TMPFILE ? "" : name);
    return file;
}

int open(char const* name, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    auto const mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return callFails() ? -1 : systems<int(char const*, int, ...)>("open")(name, flags, mode);
}

// Closed it is, whatever the plan. Only what was written can fail in it.
int close(int file)
{
    bool const fails = (fcntl(file, F_GETFL) & O_ACCMODE) != O_RDONLY && callFails();
    int const reason = errno;
    int const result = systems<int(int)>("close")(file);
    errno = fails ? reason : errno;
    return fails ? -1 : result;
}

int fchmod(int file, mode_t mode)
{
    return callFails() ? -1 : systems<int(int, mode_t)>("fchmod")(file, mode);
}

ssize_t write(int file, void const* bytes, size_t count)
{
    if (callFails())
        return -1;
    count = allowed(count);
    if (watching && count > systemPlan.diskBytes)
        count = systemPlan.diskBytes;
    if (watching && count == 0) {
        errno = ENOSPC;
        return -1;
    }
    systemPlan.diskBytes -= watching ? count : 0;
    ssize_t const written = systems<ssize_t(int, void const*, size_t)>("write")(file, bytes, count);
    if (written > 0)
        note(Operation::Write, file, {}, {static_cast<char const*>(bytes), std::size_t(written)});
    return written;
}

ssize_t read(int file, void* bytes, size_t count)
{
    if (callFails())
        return -1;
    return systems<ssize_t(int, void*, size_t)>("read")(file, bytes, allowed(count));
}

int fsync(int file)
{
    if (callFails())
        return -1;
    note(isFolder(file) ? Operation::SyncFolder : Operation::Sync, file);
    return 0;  // nothing here outlives the test
}

int linkat(int oldFolder, char const* oldName, int newFolder, char const* newName, int flags)
{
    if (callFails())
        return -1;
    int const result = systems<int(int, char const*, int, char const*, int)>("linkat")(
        oldFolder, oldName, newFolder, newName, flags);
    if (result == 0)
        note(Operation::Link, -1, newName);
    return result;
}

int renameat(int oldFolder, char const* oldName, int newFolder, char const* newName)
{
    if (callFails())
        return -1;
    int const result =
        systems<int(int, char const*, int, char const*)>("renameat")(oldFolder, oldName, newFolder, newName);
    if (result == 0)
        note(Operation::Rename, -1, oldName, newName);
    return result;
}

}  // extern "C"

namespace {

void* newBlock(std::size_t bytes, std::size_t alignment)
{
    void* memory = nullptr;
    if ((watching && memoryPlan.fails()) || posix_memalign(&memory, alignment, bytes) != 0)
        throw std::bad_alloc();
    ++liveBlocks;
    liveBytes += static_cast<std::int64_t>(malloc_usable_size(memory));
    mostBytes = std::max(mostBytes.load(), liveBytes.load());
    return memory;
}

void deleteBlock(void* memory)
{
    if (memory != nullptr) {
        --liveBlocks;
        liveBytes -= static_cast<std::int64_t>(malloc_usable_size(memory));
    }
    std::free(memory);
}

}  // namespace

// The array forms call these.

void* operator new(std::size_t bytes)
{
    return newBlock(bytes, alignof(std::max_align_t));
}

void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    return newBlock(bytes, static_cast<std::size_t>(alignment));
}

// Sorting asks for memory in this way.
void* operator new(std::size_t bytes, std::nothrow_t const&) noexcept
{
    try {
        return operator new(bytes);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

void operator delete(void* memory) noexcept
{
    deleteBlock(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    deleteBlock(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    deleteBlock(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    deleteBlock(memory);
}

namespace koImage::packetFile {
namespace {

using namespace koImage::testing;
using koPacketFile::Policy;
using koPacketFile::ReadResult;
using koPacketFile::testing::Bytes;

/// With their memory, which is no block of a save.
void forgetOperations()
{
    std::vector<Operation>().swap(operations);
}

/// While it lives, calls are counted and fail as planned.
class Watch {
public:
    explicit Watch(Plan system, Plan memory = {})
    {
        systemPlan = system;
        memoryPlan = memory;
        forgetOperations();
        watching = true;
    }
    ~Watch() { watching = false; }
    Watch(Watch const&) = delete;
    Watch& operator=(Watch const&) = delete;
};

std::string contentsOf(std::string const& name)
{
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class Faults : public ::testing::Test {
protected:
    Faults() : folder_(::testing::TempDir() + "packet_faults." + std::to_string(getpid()))
    {
        std::filesystem::create_directories(folder_);
        randomise(*image_, 1);
    }
    ~Faults() override { std::filesystem::remove_all(folder_); }

    /// A save of some pieces. Whether it says that it has succeeded.
    bool save() const
    {
        koPacketFile::FileSink sink(target_);
        ioWriteContext out(sink, {.salt = 1});
        writeImage(out, image_.get());
        return out.commit();
    }

    /// What the objects of the file hold, and what the reader says about it.
    std::pair<ReadResult, std::string> load() const
    {
        koPacketFile::FileSource source(target_);
        ioReadContext in(source);
        ReadInterface reader(in);
        ioPacketRegistry registry;
        registerTypes(&registry, &reader);
        auto const result = in.readAll(registry);
        std::string pixels;
        for (auto* const object : in.objects()) {
            auto const& image = dynamic_cast<Image const&>(*object);
            pixels.append(static_cast<char const*>(image.data()),
                          static_cast<std::size_t>(image.pixelCount() * image.bytesPerPixel()));
        }
        return {result, pixels};
    }

    void putOldFile() const { std::ofstream(target_, std::ios::binary) << "old"; }

    bool onlyTheTargetIsThere() const
    {
        for (auto const& entry : std::filesystem::directory_iterator(folder_))
            if (entry.path() != target_)
                return false;
        return true;
    }

    std::string const folder_;
    std::string const target_ = folder_ + "/target";
    ImageRef<Float4> const image_ = imageOf<Float4>({200, 200});
};

constexpr int reasons[] = {EIO, ENOSPC, EDQUOT, EINTR, 0};

TEST_F(Faults, OfEveryCallLeaveTheOldFileOrTheWholeNewOne)
{
    ASSERT_TRUE(save());
    std::string const whole = contentsOf(target_);
    long saves = 0;
    for (bool const replaces : {true, false}) {
        long calls = 0;
        {
            std::filesystem::remove(target_);
            if (replaces)
                putOldFile();
            Watch const watch({});
            ASSERT_TRUE(save());
            calls = systemPlan.calls;
        }
        ASSERT_GE(calls, 9)
            << "open of the folder and the file, three writes, sync, close, link, sync of the folder";
        for (int const reason : reasons) {
            for (bool const everAfter : {false, true}) {
                for (long failAt = 0; failAt < calls; ++failAt) {
                    SCOPED_TRACE(::testing::Message() << "errno " << reason << " at call " << failAt
                                                      << (everAfter ? " and ever after" : ""));
                    std::filesystem::remove(target_);
                    if (replaces)
                        putOldFile();
                    bool saved = false;
                    // Every call is interrupted forever: nobody waits for that.
                    if (reason == EINTR && everAfter)
                        continue;
                    {
                        Watch const watch({.failAt = failAt, .everAfter = everAfter, .reason = reason});
                        saved = save();
                    }
                    std::string const now = contentsOf(target_);
                    ASSERT_TRUE(now == whole || (!saved && now == (replaces ? "old" : "")));
                    ASSERT_TRUE(onlyTheTargetIsThere());
                    ASSERT_TRUE(saved || reason != 0) << "writing less at once is no failure";
                    ++saves;
                }
            }
        }
    }
    std::cout << saves << " saves with failing calls\n";
}

TEST_F(Faults, OfADiskThatIsFullLeaveTheOldFile)
{
    ASSERT_TRUE(save());
    std::size_t const size = contentsOf(target_).size();
    for (bool const replaces : {true, false}) {
        std::filesystem::remove(target_);
        if (replaces)
            putOldFile();
        // Full after every 4 KiB, and in front of the last byte.
        for (std::size_t full = 0; full < size;
             full = full + 4096 < size ? full + 4096 : std::max(full + 1, size - 1)) {
            bool saved = true;
            {
                Watch const watch({.diskBytes = full});
                saved = save();
            }
            ASSERT_FALSE(saved) << full;
            ASSERT_EQ(contentsOf(target_), replaces ? "old" : "");
            ASSERT_EQ(std::filesystem::exists(target_), replaces);
            ASSERT_TRUE(onlyTheTargetIsThere());
        }
    }
    Watch const watch({.diskBytes = size});
    EXPECT_TRUE(save());
}

TEST_F(Faults, OfTheTargetAreReported)
{
    auto const isSavedTo = [&](std::string const& name) {
        koPacketFile::FileSink sink(name);
        ioWriteContext out(sink);
        writeImage(out, image_.get());
        bool const saved = out.commit();
        EXPECT_EQ(saved, !sink.error() && !out.error());
        return saved;
    };
    EXPECT_FALSE(isSavedTo(folder_ + "/missing/target"));
    EXPECT_FALSE(isSavedTo(folder_));
    EXPECT_FALSE(isSavedTo(""));
    EXPECT_FALSE(isSavedTo("/proc/target")) << "a folder that takes no files";
    putOldFile();
    EXPECT_FALSE(isSavedTo(target_ + "/target")) << "a file in the place of a folder";
    for (int const reason : {EROFS, EACCES}) {
        Watch const watch({.failAt = 1, .everAfter = true, .reason = reason});
        EXPECT_FALSE(isSavedTo(target_)) << "a folder that may only be read";
    }
    EXPECT_EQ(contentsOf(target_), "old");
    EXPECT_TRUE(onlyTheTargetIsThere());
}

TEST_F(Faults, DoNotComeFromATargetThatIsALink)
{
    putOldFile();
    std::string const link = folder_ + "/link";
    std::filesystem::create_symlink("target", link);
    koPacketFile::FileSink sink(link);
    ioWriteContext out(sink, {.salt = 1});
    writeImage(out, image_.get());
    EXPECT_TRUE(out.commit());
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(load().first, ReadResult::Complete);
}

TEST_F(Faults, OfReadingAreReported)
{
    ASSERT_TRUE(save());
    std::string const pixels = load().second;
    long calls = 0;
    {
        Watch const watch({});
        load();
        calls = systemPlan.calls;
    }
    ASSERT_GE(calls, 4);
    for (int const reason : reasons) {
        for (bool const everAfter : {false, true}) {
            if (reason == EINTR && everAfter)
                continue;
            for (long failAt = 0; failAt < calls; ++failAt) {
                std::pair<ReadResult, std::string> loaded;
                {
                    Watch const watch({.failAt = failAt, .everAfter = everAfter, .reason = reason});
                    loaded = load();
                }
                bool const survives = reason == EINTR || reason == 0;
                ASSERT_EQ(loaded.first == ReadResult::Complete, survives) << reason << " at " << failAt;
                ASSERT_TRUE(!survives || loaded.second == pixels);
            }
        }
    }
}

TEST_F(Faults, OfEveryAllocationAreThrownAndLeaveNothingBehind)
{
    ASSERT_TRUE(save());
    std::string const whole = contentsOf(target_);
    for (bool const loads : {false, true}) {
        for (bool const everAfter : {false, true}) {
            // On until nothing fails any more.
            bool thrown = true;
            for (long failAt = 0; thrown; ++failAt) {
                ASSERT_LT(failAt, 100'000);
                forgetOperations();
                long const before = liveBlocks;
                thrown = false;
                bool done = false;
                {
                    Watch const watch({}, {.failAt = failAt, .everAfter = everAfter});
                    try {
                        done = loads ? load().first == ReadResult::Complete : save();
                    } catch (std::bad_alloc const&) {
                        thrown = true;
                    }
                }
                forgetOperations();
                ASSERT_EQ(liveBlocks, before) << failAt;
                ASSERT_TRUE(thrown || done) << failAt;
                ASSERT_TRUE(contentsOf(target_) == whole);
                ASSERT_TRUE(onlyTheTargetIsThere());
            }
        }
    }
}

TEST_F(Faults, OfAllocationsAreNotForgottenByACommit)
{
    // Somebody catches the exception and goes on.
    for (long failAt = 0; failAt < 60; ++failAt) {
        koPacketFile::MemorySink sink;
        ioWriteContext out(sink, {.salt = 1});
        bool thrown = false;
        bool committed = false;
        {
            Watch const watch({}, {.failAt = failAt});
            try {
                writeImage(out, image_.get());
            } catch (std::bad_alloc const&) {
                thrown = true;
            }
        }
        committed = out.commit();
        ASSERT_EQ(committed, !thrown) << failAt;
    }
}

std::vector<std::byte> fileOf(ImageBasedLighting const& light)
{
    return koPacketFile::testing::fileOf([&](ioWriteContext& out) {
        out.startPacket("light", nullptr);
        light.writeSubPacket(out);
        out.endPacket();
    });
}

TEST_F(Faults, OfAllocationsLeaveLightingAsItWas)
{
    auto const probe = randomImage<Float3>({8, 4}, 1);
    auto const map = randomImage<Half4>({6, 8}, 2);
    std::array<LightingEntry, 3> const entries{{{-1, map.get()}, {2, map.get()}, {5, probe.get()}}};
    ImageBasedLighting stored;
    makeLighting(stored, {}, probe.get(), entries);
    std::vector<std::byte> const file = fileOf(stored);
    for (bool const everAfter : {false, true}) {
        bool reached = true;  // the allocation that fails
        for (long failAt = 0; reached; ++failAt) {
            ASSERT_LT(failAt, 1000);
            long const blocks = liveBlocks;
            {
                ImageBasedLighting light;
                makeLighting(light, {}, map.get(), std::span(entries).first(1));
                std::vector<std::byte> const before = fileOf(light);
                bool thrown = false;
                {
                    Watch const watch({}, {.failAt = failAt, .everAfter = everAfter});
                    try {
                        readLights(file, [&](ioReadContext& in) { light.readSubPacket(in); });
                    } catch (std::bad_alloc const&) {
                        thrown = true;
                    }
                }
                reached = memoryPlan.calls > failAt;
                ASSERT_TRUE(fileOf(light) == (thrown ? before : file)) << failAt;

                // And written: what is thrown is not committed.
                koPacketFile::MemorySink sink;
                ioWriteContext out(sink);
                bool lost = false;
                {
                    Watch const watch({}, {.failAt = failAt, .everAfter = everAfter});
                    try {
                        out.startPacket("light", nullptr);
                        stored.writeSubPacket(out);
                        out.endPacket();
                    } catch (std::bad_alloc const&) {
                        lost = true;
                    }
                }
                ASSERT_EQ(out.commit(), !lost) << failAt;
                reached = reached || memoryPlan.calls > failAt;
            }
            ASSERT_EQ(liveBlocks, blocks) << failAt;
        }
    }
}

constexpr std::int64_t mebibyte = 1 << 20;

TEST_F(Faults, DoNotComeFromMoreMemoryThanImagesAndFourMebibytes)
{
    auto const large = imageOf<Float4>({1024, 2048});
    randomise(*large, 1);
    std::int64_t const imageBytes = 32 * mebibyte;

    mostBytes = liveBytes.load();
    std::int64_t before = mostBytes;
    {
        koPacketFile::FileSink sink(target_);
        ioWriteContext out(sink);
        writeImage(out, large.get());
        EXPECT_TRUE(out.commit());
    }
    EXPECT_LE(mostBytes - before, mebibyte) << "saving";
    std::cout << (mostBytes - before) / 1024 << " KiB for saving, ";

    mostBytes = liveBytes.load();
    before = mostBytes;
    {
        koPacketFile::FileSource source(target_);
        ioReadContext in(source);
        ReadInterface reader(in);
        ioPacketRegistry registry;
        registerTypes(&registry, &reader);
        EXPECT_EQ(in.readAll(registry), ReadResult::Complete);
    }
    EXPECT_GE(mostBytes - before, imageBytes);
    EXPECT_LE(mostBytes - before, imageBytes + 4 * mebibyte) << "loading";
    std::cout << (mostBytes - before - imageBytes) / 1024 << " KiB beside the image for loading\n";
}

// Files of many small things, each of which makes a larger one.

enum class Hostile { Headers, Images, Gaps, Lights, LightsOfTwoImages, LightsOfManyImages };

Bytes hostileFile(Hostile what, int count)
{
    return koPacketFile::testing::fileOf([&](ioWriteContext& out) {
        std::vector<char> tags(static_cast<std::size_t>(count));
        auto const header = [&](void const* tag, int width, int height) {
            out.startPacket("ko.lb.image", tag);
            for (int const value : {0, width, height})
                out.writeInt(value);
            out.writeBool(false);
            out.writeBool(false);
            out.endPacket();
        };
        auto const parcel = [&](void const* tag, int start) {
            std::uint8_t const byte = 1;
            out.startPacket("ko.lb.image.parcel", nullptr);
            out.writeReference(tag);
            out.writeInt(start);
            out.writeInt(1);
            out.writeBytes(&byte, 1);
            out.endPacket();
        };
        if (what == Hostile::Headers || what == Hostile::Images)
            for (char& tag : tags) {
                header(&tag, what == Hostile::Headers ? 0 : 2, 1);
                if (what == Hostile::Images)
                    parcel(&tag, 1);
            }
        if (what == Hostile::Gaps) {
            header(tags.data(), 2, count);
            for (int i = 0; i < count; ++i)
                parcel(tags.data(), 2 * i + 1);
        }
        if (what == Hostile::Lights || what == Hostile::LightsOfTwoImages ||
            what == Hostile::LightsOfManyImages) {
            int const images = what == Hostile::Lights ? 1 : what == Hostile::LightsOfTwoImages ? 2 : count;
            for (int i = 0; i < images; ++i)
                header(&tags[static_cast<std::size_t>(i)], 2, 1);
            out.startPacket("light", nullptr);
            out.startSubPacket();
            out.writeBool(true);
            writeIrradiance(out, {});
            out.writeReference(tags.data());
            out.writeInt(count);
            for (int i = 0; i < count; ++i) {
                out.startSubPacket();
                out.writeInt(count - i);  // in no order that a writer would choose
                out.writeReference(&tags[static_cast<std::size_t>(i % images)]);
                out.endSubPacket();
            }
            out.endSubPacket();
            out.endPacket();
        }
    });
}

TEST_F(Faults, DoNotComeFromManySmallThings)
{
    for (Hostile const what : {Hostile::Headers, Hostile::Images, Hostile::Gaps, Hostile::Lights,
                               Hostile::LightsOfTwoImages, Hostile::LightsOfManyImages}) {
        constexpr int count = 200'000;
        Bytes const file = hostileFile(what, count);
        // The smallest block, for the two pixels of each image.
        std::int64_t const pixelBytes = what == Hostile::LightsOfManyImages ? 24 * count : 0;
        auto const fileBytes = static_cast<std::int64_t>(file.size());
        ASSERT_GE(fileBytes, 4 * mebibyte);
        koPacketFile::MemorySource ofKnownSize(file);
        koPacketFile::testing::Pipe pipe(file);
        for (koPacketFile::ByteSource* const source :
             {&ofKnownSize, static_cast<koPacketFile::MemorySource*>(&pipe)}) {
            mostBytes = liveBytes.load();
            std::int64_t const before = mostBytes;
            ImageBasedLighting light;
            auto const read = [&](ioReadContext& in) { light.readSubPacket(in); };
            readLights(*source, read, {.policy = Policy::Recover});
            std::int64_t const taken = mostBytes - before;
            EXPECT_GE(taken, fileBytes / 2) << "it is read, and not refused";
            EXPECT_LE(taken, 4 * mebibyte + 3 * fileBytes + pixelBytes)
                << static_cast<int>(what) << ' ' << taken;
        }
    }
}

// What a disk may hold after the machine has failed, whatever the order in which it wrote: of each file what
// was synced, and any part of what was written since; of the folder any of its changes that were not synced,
// up to some point in their order.
class Crash {
public:
    Crash(std::vector<Operation> log, std::string whole) : log_(std::move(log)), whole_(std::move(whole)) {}

    struct Result {
        std::size_t states = 0;
        std::size_t wrong = 0;
    };

    /// Replays the log to every operation. A state is wrong when the target is neither old nor whole, or is
    /// old although the save had returned.
    Result check() const
    {
        Result result;
        Random random(3);
        for (std::size_t done = 0; done <= log_.size(); ++done) {
            std::size_t folderSynced = 0;
            std::size_t folderChanges = 0;
            for (std::size_t i = 0; i < done; ++i) {
                folderChanges += isFolderChange(log_[i]) ? 1u : 0u;
                folderSynced = log_[i].kind == Operation::SyncFolder ? folderChanges : folderSynced;
            }
            for (std::size_t changes = folderSynced; changes <= folderChanges; ++changes) {
                for (int variant = 0; variant < variants; ++variant) {
                    std::string const target = targetAfter(done, changes, variant, random);
                    ++result.states;
                    bool const mayBeOld = done < log_.size();
                    if (target != whole_ && !(mayBeOld && target == "old"))
                        ++result.wrong;
                }
            }
        }
        return result;
    }

private:
    static constexpr int variants = 1000;

    static bool isFolderChange(Operation const& operation)
    {
        return operation.kind == Operation::Link || operation.kind == Operation::Rename;
    }

    /// The content of the one file that the save writes: a write that was not synced is there, not there, or
    /// torn between two blocks.
    std::string contentAfter(std::size_t done, int variant, Random& random) const
    {
        std::size_t synced = 0;
        for (std::size_t i = 0; i < done; ++i)
            synced = log_[i].kind == Operation::Sync ? i : synced;
        std::string content;
        for (std::size_t i = 0; i < done; ++i) {
            if (log_[i].kind != Operation::Write)
                continue;
            std::string piece = log_[i].content;
            if (i > synced) {
                // None of it, all, or at random: not written, written to a block, or written.
                std::size_t const choice = variant == 0 ? 0 : variant == 1 ? 2 : random() % 3;
                std::size_t const block = random() % 2 == 0 ? 512 : 4096;
                std::size_t const kept = choice == 0   ? 0
                                         : choice == 1 ? random() % (piece.size() / block + 1) * block
                                                       : piece.size();
                std::fill(piece.begin() + static_cast<std::ptrdiff_t>(std::min(kept, piece.size())),
                          piece.end(), '\0');
            }
            content += piece;
        }
        return content;
    }

    std::string targetAfter(std::size_t done, std::size_t changes, int variant, Random& random) const
    {
        std::string temporary;
        std::string target = "old";
        for (Operation const& operation : log_) {
            if (!isFolderChange(operation))
                continue;
            if (changes-- == 0)
                break;
            bool const isTarget = operation.kind == Operation::Link ? operation.name == "target"
                                                                    : operation.content == "target";
            if (isTarget)
                target = contentAfter(done, variant, random);
        }
        return target;
    }

    std::vector<Operation> log_;
    std::string whole_;
};

class CrashOfTheMachine : public Faults {
protected:
    CrashOfTheMachine()
    {
        putOldFile();
        Watch const watch({});
        EXPECT_TRUE(save());
        log_ = operations;
    }

    std::vector<Operation> without(Operation::Kind kind) const
    {
        std::vector<Operation> rest;
        std::copy_if(log_.begin(), log_.end(), std::back_inserter(rest),
                     [kind](Operation const& operation) { return operation.kind != kind; });
        EXPECT_LT(rest.size(), log_.size());
        return rest;
    }

    std::vector<Operation> log_;
};

TEST_F(CrashOfTheMachine, LeavesTheOldFileOrTheNewOne)
{
    std::string const whole = contentsOf(target_);
    auto const result = Crash(log_, whole).check();
    EXPECT_EQ(result.wrong, 0u);
    std::cout << result.states << " states, each the old file or the new one\n";
    EXPECT_GE(result.states, 10'000u);
}

// The check finds what it is to find: a save that syncs less is caught.
TEST_F(CrashOfTheMachine, WouldBeNoticedWithoutEitherSync)
{
    std::string const whole = contentsOf(target_);
    EXPECT_GT(Crash(without(Operation::Sync), whole).check().wrong, 0u);
    EXPECT_GT(Crash(without(Operation::SyncFolder), whole).check().wrong, 0u);
}

TEST_F(Faults, DoNotComeFromTwoSaversOfOneTarget)
{
    auto const other = imageOf<Float4>({10, 10});
    koPacketFile::FileSink first(target_);
    koPacketFile::FileSink second(target_);
    ioWriteContext a(first);
    ioWriteContext b(second);
    writeImage(a, image_.get());
    writeImage(b, other.get());
    EXPECT_TRUE(a.commit());
    EXPECT_EQ(load().first, ReadResult::Complete);
    EXPECT_EQ(load().second.size(), 200u * 200u * 16u);
    EXPECT_TRUE(b.commit());
    EXPECT_EQ(load().first, ReadResult::Complete);
    EXPECT_EQ(load().second.size(), 10u * 10u * 16u);
    EXPECT_TRUE(onlyTheTargetIsThere());
}

}  // namespace
}  // namespace koImage::packetFile
