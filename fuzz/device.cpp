// SPDX-License-Identifier: MIT
//
// The device API over the stand-in for the camera's platform: any frame record, any order of calls, with the
// platform's calls failing. Nothing stays in use that the interface does not say, and a feature is written
// by success alone. The core stands in this program, so that a frame costs no networks: it answers what the
// run says, and touches the first and the last row of the picture that it is given and some between. So does
// the end of a scaling, which most times only pretends.
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "input.h"
#include "orvo/kova_fr.h"
#include "orvo/kova_mpi.h"
#include "orvo/kova_mpi_host.h"
#include "orvo/orvo_fr.h"
#include "quiet.h"
#include "require.h"

namespace orvo_fuzz {
namespace {

constexpr uint32_t kFrameBytes = 1 << 17;
constexpr int32_t kMostCalls = 4;
constexpr float kUntouched = 1000;

struct Frame {
    uint64_t phy = 0;
    void* vir = nullptr;
};

// What of the surroundings a run decides.
struct Surroundings {
    Frame frame;
    bool isInitialised = false;
    bool mayLeak = false;   // what would have given something back is to fail
    bool isBlanked = false; // an address may be missing that the library keeps
    int32_t coreStatus = 0; // what the core answers
    bool hasNoSize = false; // the core needs 0 bytes of working memory
    uint32_t endsLeft = 0;  // ends of scalings until one fails; 0: none does
    bool endsFailForGood = false;
    bool isScaled = false;   // by the stand-in's own scaler
    bool touchesRows = true; // the picture's size is not the caller's word alone
};
Surroundings here;

Frame AllocateFrame() {
    Frame frame;
    Require(KOVA_MPI_SYS_MmzAlloc(&frame.phy, &frame.vir, "FRAME", nullptr, kFrameBytes) == 0,
            "a frame is allocated");
    return frame;
}

kova_mpi_host_usage Usage() {
    kova_mpi_host_usage usage;
    kova_mpi_host_get_usage(&usage);
    return usage;
}

// The frame, and the working memory of the library.
uint32_t WantedBlocks() { return here.isInitialised ? 2 : 1; }

// Every block, mapping and job goes.
void StartAnew() {
    kova_mpi_host_clear_faults();
    static_cast<void>(kova_fr_deinit());
    kova_mpi_host_reset();
    here = {};
    here.frame = AllocateFrame();
    Require(kova_fr_init() == KOVA_FR_OK, "the library is initialised");
    here.isInitialised = true;
}

// A platform that knows mappings by their own address keeps those that the library made, see frame.cpp.
void DropMappings() {
    kova_mpi_host_mapping mapping;
    while (kova_mpi_host_get_mapping(0, &mapping) == 0) {
        Require(KOVA_MPI_SYS_Munmap(mapping.vir, mapping.size) == 0, "a mapping is given back");
    }
}

// What a failing platform did not take back, or the library cannot know. False where something stays.
bool FreeWhatStayed() {
    kova_mpi_host_block block;
    for (uint32_t i = 0; kova_mpi_host_get_block(i, &block) == 0;) {
        const bool isOurs = std::strcmp(block.name, "FRAME") == 0;
        const bool isWorkingMemory = std::strcmp(block.name, "FR_MEM") == 0 && here.isInitialised;
        if (isOurs || isWorkingMemory || KOVA_MPI_SYS_MmzFree(block.phy, block.vir) != 0) {
            ++i;
        }
    }
    const kova_mpi_host_usage usage = Usage();
    return usage.blocks == WantedBlocks() && usage.jobs == 0;
}

void CheckUsage() {
    const kova_mpi_host_usage usage = Usage();
    Require(usage.blocks >= WantedBlocks(), "nothing is freed that is in use");
    if (!here.mayLeak) {
        Require(usage.blocks == WantedBlocks(), "no block stays");
        Require(usage.jobs == 0, "no job stays open");
    }
}

constexpr const char* kFunctions[] = {"KOVA_MPI_SYS_MmzAlloc",     "KOVA_MPI_SYS_MmzAlloc_Cached",
                                      "KOVA_MPI_SYS_MmzFree",      "KOVA_MPI_SYS_Mmap",
                                      "KOVA_MPI_SYS_Munmap",       "KOVA_MPI_VGS_BeginJob",
                                      "KOVA_MPI_VGS_AddScaleTask", "KOVA_MPI_VGS_CancelJob"};

void SetFault(Input& input) {
    const uint8_t kind = input.Byte();
    const char* const function = kFunctions[kind % std::size(kFunctions)];
    const uint32_t n = input.Between(1, 3);
    const bool isForGood = input.Flag();
    if (kind < 32) {
        here.endsLeft = n;
        here.endsFailForGood = isForGood;
    } else if (kind < 220) {
        const auto code = static_cast<int32_t>(input.Number<uint16_t>() | 0xA0020000u);
        Require(kova_mpi_host_fail_call(function, n, code, isForGood) == 0, "a fault is set");
        here.mayLeak |=
            std::strstr(function, "Free") != nullptr || std::strstr(function, "Cancel") != nullptr;
    } else {
        const auto blank = input.Flag() ? KOVA_MPI_HOST_BLANK_PHY : KOVA_MPI_HOST_BLANK_VIR;
        Require(kova_mpi_host_blank_address(kFunctions[kind % 2], n, blank, isForGood) == 0,
                "an address is left out");
        here.mayLeak = true;
        here.isBlanked = true;
    }
}

uint32_t Extent(Input& input, uint32_t usual) {
    const uint8_t kind = input.Byte();
    return kind < 128   ? usual
           : kind < 224 ? kind - 120u
           : kind < 240 ? input.Number<uint16_t>()
                        : input.Number<uint32_t>();
}

obj_img TakeRecord(Input& input) {
    obj_img img = {};
    const uint8_t kind = input.Byte();
    img.mem_type = kind < 240 ? kind % 2 : input.Number<uint32_t>();
    const uint8_t place = input.Byte();
    img.phy_addr = place < 160   ? here.frame.phy
                   : place < 224 ? here.frame.phy + input.Number<int16_t>() * int64_t{8}
                                 : input.Number<uint64_t>();
    // What the caller says is mapped has to be.
    img.vir_addr = place % 8 == 0 ? 0 : reinterpret_cast<uintptr_t>(here.frame.vir);
    img.width = Extent(input, ORVO_FR_IMAGE_SIZE);
    img.height = Extent(input, ORVO_FR_IMAGE_SIZE);
    img.stride = input.Byte() < 224 ? img.width + input.Byte() : input.Number<uint32_t>();
    img.pool_id = input.Byte();
    return img;
}

void Extract(Input& input) {
    std::array<float, KOVA_FR_FEATURE_LEN> feature;
    feature.fill(kUntouched);
    const obj_img img = TakeRecord(input);
    const uint8_t how = input.Byte();
    here.isScaled = how == 1;
    here.coreStatus = how > 250 ? ORVO_FR_WRONG_SIZE : ORVO_FR_OK;
    here.touchesRows = img.mem_type == 0 ||
                       uint64_t{img.stride} * ORVO_FR_IMAGE_SIZE <= kFrameBytes ||
                       img.width != ORVO_FR_IMAGE_SIZE || img.height != ORVO_FR_IMAGE_SIZE;
    const uint32_t length = how % 16 == 15 ? input.Number<uint32_t>() : KOVA_FR_FEATURE_LEN;
    float* const result = how % 64 == 14 ? nullptr : feature.data();
    const obj_img before = img;
    const uint32_t status =
        kova_fr_extract_obj_feature(how % 64 == 13 ? nullptr : &img, length, result);
    Require(std::memcmp(&before, &img, sizeof img) == 0, "a record is only read");
    const bool isWritten = feature[0] != kUntouched;
    Require(isWritten == (status == KOVA_FR_OK), "success alone writes a feature");
    Require(status != KOVA_FR_OK || here.isInitialised, "nothing is extracted before the start");
}

void Distance(Input& input) {
    static constexpr std::array<float, KOVA_FR_FEATURE_LEN> kFeature = {1};
    const uint8_t how = input.Byte();
    const auto length = [&] {
        return input.Byte() < 192 ? KOVA_FR_FEATURE_LEN : input.Number<int32_t>();
    };
    const int32_t a = length();
    const int32_t b = length();
    float result = kUntouched;
    const uint32_t status = kova_fr_get_distance((how & 1) != 0 ? nullptr : kFeature.data(), a,
                                                 (how & 2) != 0 ? nullptr : kFeature.data(), b,
                                                 (how & 4) != 0 ? nullptr : &result);
    const bool isGood = (how & 7) == 0 && a == KOVA_FR_FEATURE_LEN && b == KOVA_FR_FEATURE_LEN &&
                        here.isInitialised;
    Require((status == KOVA_FR_OK) == isGood, "distances are refused as stated");
    Require((result == 1) == isGood, "a feature is like itself");
}

void Start(Input& input) {
    const uint8_t how = input.Byte();
    here.coreStatus = how < 192      ? ORVO_FR_OK
                      : how % 4 == 0 ? ORVO_FR_REPEAT_INIT
                                     : ORVO_FR_NOT_DECRYPTED;
    here.hasNoSize = how == 191;
    const uint32_t status = kova_fr_init();
    here.hasNoSize = false;
    Require(!here.isInitialised || status == KOVA_FR_ERR_EXIST, "a second start is refused");
    here.isInitialised |= status == KOVA_FR_OK;
}

void Stop(Input& /*input*/) {
    const uint32_t status = kova_fr_deinit();
    Require(here.isInitialised || status == KOVA_FR_ERR_UNEXIST, "a second end is refused");
    here.isInitialised &= status != KOVA_FR_OK;
}

void MakeCalls(Input& input) {
    const int32_t faults = input.Byte() % 4;
    for (int32_t i = 1; i < faults; ++i) {
        SetFault(input);
    }
    for (int32_t calls = 0; calls < kMostCalls && input.left() > 0; ++calls) {
        const uint8_t kind = input.Byte();
        (kind < 200 ? Extract : kind < 224 ? Distance : kind < 240 ? Start : Stop)(input);
        CheckUsage();
    }
}

} // namespace
} // namespace orvo_fuzz

int32_t OrvoFrInit(void) { return orvo_fuzz::here.coreStatus; }

uint32_t OrvoFrGetMemorySize(void) { return orvo_fuzz::here.hasNoSize ? 0 : 4096; }

int32_t OrvoFrSetMemory(void* addr, uint32_t size) {
    const bool isTaken = addr != nullptr && size == OrvoFrGetMemorySize();
    return isTaken ? ORVO_FR_OK : ORVO_FR_NULL_ADDRESS;
}

int32_t OrvoFrRun(const FrImage* img, void* result, uint32_t resultSize) {
    using namespace orvo_fuzz;
    Require(img->width == ORVO_FR_IMAGE_SIZE && img->height == ORVO_FR_IMAGE_SIZE &&
                resultSize == ORVO_FR_FEATURE_BYTES,
            "the core is given what it takes");
    if (img->addr == nullptr || img->stride < ORVO_FR_IMAGE_SIZE || here.coreStatus != ORVO_FR_OK) {
        return here.coreStatus != ORVO_FR_OK ? here.coreStatus : int32_t{ORVO_FR_WRONG_SIZE};
    }
    uint32_t sum = 0;
    for (int64_t row = 0; here.touchesRows && row < img->height; row += 51) { // the last one, too
        const volatile uint8_t* const pixels = img->addr + row * img->stride;
        sum += pixels[0];
        sum += pixels[img->width - 1];
    }
    const float element = static_cast<float>(sum % 7) / 7;
    std::array<float, ORVO_FR_FEATURE_LENGTH> feature;
    feature.fill(element);
    std::memcpy(result, feature.data(), sizeof feature);
    return ORVO_FR_OK;
}

int32_t KOVA_MPI_VGS_EndJob(int32_t handle) {
    using namespace orvo_fuzz;
    using End = int32_t (*)(int32_t);
    static const auto end = reinterpret_cast<End>(dlsym(RTLD_NEXT, "KOVA_MPI_VGS_EndJob"));
    if (here.endsLeft == 1) { // the job stays open, as the stand-in's does
        here.endsLeft = here.endsFailForGood ? 1 : 0;
        return KOVA_VGS_ERR_NOMEM;
    }
    here.endsLeft -= here.endsLeft > 0 ? 1 : 0;
    return here.isScaled ? end(handle) : KOVA_MPI_VGS_CancelJob(handle);
}

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    orvo_fuzz::SilenceDiagnostics();
    orvo_fuzz::StartAnew();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvo_fuzz;
    Input input(data, size);
    MakeCalls(input);
    kova_mpi_host_clear_faults();
    DropMappings();
    here.coreStatus = ORVO_FR_OK;
    if (here.isBlanked || !FreeWhatStayed()) {
        StartAnew();
    } else if (!here.isInitialised) {
        Require(kova_fr_init() == KOVA_FR_OK, "the library is initialised");
        here.isInitialised = true;
    }
    here.mayLeak = false;
    here.endsLeft = 0;
    return 0;
}
