// SPDX-License-Identifier: MIT
//
// Opening the models leaves no piece of a key behind. The models are opened on a painted stack of
// our own; then the stack, the vector registers as they were right after the call, and the
// program's and the libraries' writable data are searched for keys, round keys and IVs of all
// models and for the white-box key. Linked with refusing_memory.cpp, the program also looks at what an opening leaves
// that fails on its way.
#include <gtest/gtest.h>
#include <link.h>
#include <pthread.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "orvo/cipher.h"
#if defined(ORVO_HAVE_FIND)
#include "orvo/orvo_find.h"
#endif
#include "orvo/orvo_fr.h"
#include "refusing_memory.h"
#include "test_keys.h"

namespace {

using orvo_test::PackingKey;
using Block = std::array<uint8_t, 16>;

constexpr size_t kStackBytes = 256 * 1024;
constexpr uint8_t kPaint = 0xC7;

// ---- What must not be found

Block ToBlock(const std::vector<uint8_t>& bytes) {
    Block block{};
    std::copy_n(bytes.begin(), std::min<size_t>(bytes.size(), 16), block.begin());
    return block;
}

uint8_t GfMultiply(uint8_t a, uint8_t b) {
    uint8_t product = 0;
    for (; b != 0; b = static_cast<uint8_t>(b >> 1)) {
        product = static_cast<uint8_t>(product ^ ((b & 1) != 0 ? a : 0));
        a = static_cast<uint8_t>((a << 1) ^ ((a & 0x80) != 0 ? 0x1b : 0));
    }
    return product;
}

void InverseMixColumns(Block& block) {
    const uint8_t matrix[4] = {0x0e, 0x0b, 0x0d, 0x09};
    const Block old = block;
    for (size_t i = 0; i < 16; ++i) {
        uint8_t sum = 0;
        for (size_t k = 0; k < 4; ++k) {
            sum = static_cast<uint8_t>(sum ^ GfMultiply(old[i / 4 * 4 + (i + k) % 4], matrix[k]));
        }
        block[i] = sum;
    }
}

// The round keys of the standard, and those of the equivalent inverse cipher, whose inner ones have
// gone through the inverse column mixing.
void AddRoundKeys(const Block& key, std::vector<Block>& secrets) {
    AES_ctx context;
    AES_init_ctx(&context, key.data());
    for (int round = 0; round <= 10; ++round) {
        Block roundKey;
        std::memcpy(roundKey.data(), context.roundKeys + 16 * round, 16);
        secrets.push_back(roundKey);
        if (round != 0 && round != 10) {
            InverseMixColumns(roundKey);
            secrets.push_back(roundKey);
        }
    }
}

std::vector<Block> Secrets() {
    std::vector<Block> secrets;
    for (const char* name : {"white_box_key", "align_key", "fr_key", "find_key"}) {
        AddRoundKeys(ToBlock(PackingKey(name)), secrets);
    }
    for (const char* name : {"align_wrap_iv", "align_array_iv", "fr_wrap_iv", "fr_array_iv",
                             "find_wrap_iv", "find_array_iv"}) {
        secrets.push_back(ToBlock(PackingKey(name)));
    }
    return secrets;
}

// Spilled words need not lie together, so single words are looked for where chance hits are out of
// the question.
std::set<uint32_t> SecretWords() {
    std::set<uint32_t> words;
    for (const Block& block : Secrets()) {
        for (size_t at = 0; at < 16; at += 4) {
            uint32_t word;
            std::memcpy(&word, block.data() + at, 4);
            words.insert(word);
        }
    }
    return words;
}

size_t WordsFoundIn(const uint8_t* data, size_t size, const std::set<uint32_t>& words) {
    size_t found = 0;
    for (size_t at = 0; at + 4 <= size; ++at) {
        uint32_t word;
        std::memcpy(&word, data + at, 4);
        found += words.count(word);
    }
    return found;
}

bool Contains(const uint8_t* data, size_t size, const Block& secret) {
    return std::search(data, data + size, secret.begin(), secret.end()) != data + size;
}

// ---- The opening

alignas(64) uint8_t registers[32 * 64];
alignas(64) uint8_t stack[kStackBytes];

#if defined(__x86_64__)
__attribute__((target("avx512f"))) inline void SaveWideVectors() {
#define SAVE(n) __asm__ __volatile__("vmovdqu64 %%zmm" #n ", %0" : "=m"(registers[64 * n]))
    SAVE(0);
    SAVE(1);
    SAVE(2);
    SAVE(3);
    SAVE(4);
    SAVE(5);
    SAVE(6);
    SAVE(7);
    SAVE(8);
    SAVE(9);
    SAVE(10);
    SAVE(11);
    SAVE(12);
    SAVE(13);
    SAVE(14);
    SAVE(15);
    SAVE(16);
    SAVE(17);
    SAVE(18);
    SAVE(19);
    SAVE(20);
    SAVE(21);
    SAVE(22);
    SAVE(23);
    SAVE(24);
    SAVE(25);
    SAVE(26);
    SAVE(27);
    SAVE(28);
    SAVE(29);
    SAVE(30);
    SAVE(31);
#undef SAVE
}
inline void SaveVectors() {
#define SAVE(n) __asm__ __volatile__("movdqu %%xmm" #n ", %0" : "=m"(registers[64 * n]))
    SAVE(0);
    SAVE(1);
    SAVE(2);
    SAVE(3);
    SAVE(4);
    SAVE(5);
    SAVE(6);
    SAVE(7);
    SAVE(8);
    SAVE(9);
    SAVE(10);
    SAVE(11);
    SAVE(12);
    SAVE(13);
    SAVE(14);
    SAVE(15);
#undef SAVE
}
void SaveRegisters(bool areWide) {
    if (areWide) {
        SaveWideVectors();
    } else {
        SaveVectors();
    }
}
bool VectorsAreWide() { return __builtin_cpu_supports("avx512f"); }
#elif defined(__aarch64__)
void SaveRegisters(bool) {
#define SAVE(n) __asm__ __volatile__("str q" #n ", %0" : "=Q"(*(Block*)(registers + 16 * n)))
    SAVE(0);
    SAVE(1);
    SAVE(2);
    SAVE(3);
    SAVE(4);
    SAVE(5);
    SAVE(6);
    SAVE(7);
    SAVE(8);
    SAVE(9);
    SAVE(10);
    SAVE(11);
    SAVE(12);
    SAVE(13);
    SAVE(14);
    SAVE(15);
    SAVE(16);
    SAVE(17);
    SAVE(18);
    SAVE(19);
    SAVE(20);
    SAVE(21);
    SAVE(22);
    SAVE(23);
    SAVE(24);
    SAVE(25);
    SAVE(26);
    SAVE(27);
    SAVE(28);
    SAVE(29);
    SAVE(30);
    SAVE(31);
#undef SAVE
}
bool VectorsAreWide() { return false; }
#elif defined(__ARM_NEON)
void SaveRegisters(bool) {
    uint8_t* to = registers;
    __asm__ __volatile__(
        "vst1.8 {d0-d3}, [%0]!\n\tvst1.8 {d4-d7}, [%0]!\n\tvst1.8 {d8-d11}, [%0]!\n\t"
        "vst1.8 {d12-d15}, [%0]!\n\tvst1.8 {d16-d19}, [%0]!\n\tvst1.8 {d20-d23}, [%0]!\n\t"
        "vst1.8 {d24-d27}, [%0]!\n\tvst1.8 {d28-d31}, [%0]!"
        : "+r"(to)
        :
        : "memory");
}
bool VectorsAreWide() { return false; }
#else
void SaveRegisters(bool) {}
bool VectorsAreWide() { return false; }
#endif

struct Opening {
    int32_t (*open)();
    bool areVectorsWide;
    int32_t status;
};

void* OpenAndSaveRegisters(void* data) {
    auto& opening = *static_cast<Opening*>(data);
    const bool wide = opening.areVectorsWide;
    const int32_t status = opening.open();
    SaveRegisters(wide);
    opening.status = status;
    return nullptr;
}

// Runs the opening in a thread on the painted stack. @return its status
int32_t OpenOnPaintedStack(int32_t (*open)()) {
    std::memset(stack, kPaint, sizeof stack);
    Opening opening = {open, VectorsAreWide(), -1};
    pthread_attr_t attributes;
    EXPECT_EQ(pthread_attr_init(&attributes), 0);
    EXPECT_EQ(pthread_attr_setstack(&attributes, stack, sizeof stack), 0);
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, OpenAndSaveRegisters, &opening), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
    return opening.status;
}

size_t StackUsed() {
    const uint8_t* lowest = std::find_if(std::begin(stack), std::end(stack),
                                         [](uint8_t byte) { return byte != kPaint; });
    return static_cast<size_t>(std::end(stack) - lowest);
}

// Words of secrets on the stack and in the registers.
size_t WordsLeft(const std::set<uint32_t>& words) {
    return WordsFoundIn(stack, sizeof stack, words) +
           WordsFoundIn(registers, sizeof registers, words);
}

TEST(Traces, AreFoundWhereTheyAreLeft) {
    const Block key = ToBlock(PackingKey("fr_key"));
    std::memcpy(stack + 1001, key.data() + 4, 4);
    std::memcpy(registers + 5, key.data() + 8, 4);
    EXPECT_EQ(WordsLeft(SecretWords()), 2u);
    std::memset(stack, 0, sizeof stack);
    std::memset(registers, 0, sizeof registers);
    EXPECT_EQ(WordsLeft(SecretWords()), 0u);
    EXPECT_EQ(Secrets().size(), 4u * 20 + 6);
}

TEST(Traces, OfKeysAreNotLeftOnTheStackOrInRegisters) {
    const std::set<uint32_t> words = SecretWords();
    ASSERT_EQ(OpenOnPaintedStack(OrvoFrInit), ORVO_FR_OK);
    EXPECT_GT(StackUsed(), 2000u);
    EXPECT_EQ(WordsLeft(words), 0u);
}

#if defined(ORVO_HAVE_FIND)
TEST(Traces, OfTheFindersKeysAreNotLeftOnTheStackOrInRegisters) {
    const std::set<uint32_t> words = SecretWords();
    ASSERT_EQ(OpenOnPaintedStack(OrvoFindInit), ORVO_FIND_OK);
    EXPECT_GT(StackUsed(), 2000u);
    EXPECT_EQ(WordsLeft(words), 0u);
}
#endif

#if defined(ORVO_REFUSING_MEMORY)
// How a process ends that opens the models while a call of the bounded functions is refused.
enum { kFailedAndLeftNothing = 3, kFailedAndLeftSomething, kSucceeded };

[[noreturn]] void OpenRefused(int call, const std::set<uint32_t>& words) {
    orvo_test::RefuseBoundedCall(call);
    const int32_t status = OpenOnPaintedStack(OrvoFrInit);
    const bool isClean = StackUsed() > 500 && WordsLeft(words) == 0;
    std::_Exit(status == ORVO_FR_OK ? kSucceeded
               : isClean            ? kFailedAndLeftNothing
                                    : kFailedAndLeftSomething);
}

TEST(Traces, OfKeysAreNotLeftByAnOpeningThatFails) {
    const std::set<uint32_t> words = SecretWords();
    int ended = kFailedAndLeftNothing;
    const auto note = [&ended](int status) {
        ended = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
        return true;
    };
    int failures = 0;
    for (int call = 1; ended == kFailedAndLeftNothing; ++call) {
        EXPECT_EXIT(OpenRefused(call, words), note, "");
        failures += ended == kFailedAndLeftNothing;
    }
    EXPECT_EQ(ended, kSucceeded) << "call " << failures + 1;
    EXPECT_GE(failures, 12);
}
#endif

struct Search {
    const std::vector<Block>& secrets;
    std::string found;
    size_t searched = 0;
};

// Every writable segment of the program and of the libraries that it has loaded.
int SearchWritable(dl_phdr_info* info, size_t, void* data) {
    auto& search = *static_cast<Search*>(data);
    for (size_t i = 0; i < info->dlpi_phnum; ++i) {
        const auto& segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) == 0) {
            continue;
        }
        const auto* begin = reinterpret_cast<const uint8_t*>(info->dlpi_addr + segment.p_vaddr);
        search.searched += segment.p_memsz;
        for (const Block& secret : search.secrets) {
            if (Contains(begin, segment.p_memsz, secret)) {
                search.found += std::string(info->dlpi_name) + "; ";
            }
        }
    }
    return 0;
}

TEST(Traces, OfKeysAreNotLeftInStatics) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "between statics lies what AddressSanitizer lets nobody read";
#endif
    ASSERT_EQ(OpenOnPaintedStack(OrvoFrInit), ORVO_FR_OK);
#if defined(ORVO_HAVE_FIND)
    ASSERT_EQ(OpenOnPaintedStack(OrvoFindInit), ORVO_FIND_OK);
#endif
    const std::vector<Block> secrets = Secrets();
    Search search{secrets, ""};
    dl_iterate_phdr(SearchWritable, &search);
    EXPECT_GT(search.searched, 300000u); // the models are among them
    EXPECT_EQ(search.found, "");
}

} // namespace
