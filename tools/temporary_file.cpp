// Output files that appear whole or not at all: written under a temporary
// name and renamed into place, removed on failure and on SIGINT, SIGTERM or
// SIGHUP.
#include "image_detail.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>

#include <unistd.h>

namespace kxio {
namespace detail {

namespace {

// The temporaries that exist, for the signal handler. A slot's name is
// written before the slot is marked in use and is not touched while it is,
// so the handler reads only complete names.
constexpr int kSlots = 64;
constexpr std::size_t kNameBytes = 4096;
char slotNames[kSlots][kNameBytes];
std::atomic<bool> slotUsed[kSlots];

const int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void removeTemporariesAndDie(int signal)
{
    for (int i = 0; i < kSlots; ++i)
        if (slotUsed[i].load())
            unlink(slotNames[i]);   // async-signal-safe
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// Installs the handler once, for the signals nobody else has claimed.
void installHandler()
{
    static std::once_flag once;
    std::call_once(once, [] {
        for (int s : kSignals) {
            struct sigaction current {};
            if (sigaction(s, nullptr, &current) != 0 || current.sa_handler != SIG_DFL)
                continue;
            struct sigaction action {};
            action.sa_handler = removeTemporariesAndDie;
            sigemptyset(&action.sa_mask);
            sigaction(s, &action, nullptr);
        }
    });
}

int claimSlot(const std::string& name)
{
    if (name.size() >= kNameBytes)
        return -1;
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    for (int i = 0; i < kSlots; ++i)
        if (!slotUsed[i].load()) {
            std::memcpy(slotNames[i], name.c_str(), name.size() + 1);
            slotUsed[i].store(true);
            return i;
        }
    return -1;   // more temporaries than slots: these are not cleaned on a signal
}

void releaseSlot(int slot)
{
    if (slot >= 0)
        slotUsed[slot].store(false);
}

}  // namespace

TemporaryFile::TemporaryFile(const std::string& path) : path_(path), temporary_(path + ".partial")
{
    installHandler();
    slot_ = claimSlot(temporary_);
    file_ = std::fopen(temporary_.c_str(), "w+b");
    if (!file_) {
        const int error = errno;
        releaseSlot(slot_);
        fail(path, std::string("cannot write: ") + std::strerror(error));
    }
}

TemporaryFile::~TemporaryFile()
{
    if (file_) {
        std::fclose(file_);
        std::remove(temporary_.c_str());
    }
    releaseSlot(slot_);
}

void TemporaryFile::commit()
{
    std::FILE* file = file_;
    file_ = nullptr;
    const bool flushed = std::fflush(file) == 0;
    const int flushError = errno;
    const bool closed = std::fclose(file) == 0;
    const int closeError = errno;
    if (!flushed || !closed) {
        std::remove(temporary_.c_str());
        fail(path_, std::string("write failed: ") + std::strerror(flushed ? closeError : flushError));
    }
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        const int error = errno;
        std::remove(temporary_.c_str());
        fail(path_, std::string("cannot write: ") + std::strerror(error));
    }
}

}  // namespace detail
}  // namespace kxio
