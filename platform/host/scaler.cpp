// SPDX-License-Identifier: MIT
#include <algorithm>
#include <limits>

#include "grey/scale_plane.h"
#include "orvo/kova_mpi.h"
#include "orvo/kova_mpi_host.h"
#include "platform/host/media_memory.h"

namespace kova_host {
namespace {

uint64_t FrameBytes(const kova_video_frame& frame) {
    return uint64_t{frame.stride[0]} * frame.height;
}

bool IsValidFrame(const Platform& platform, const kova_video_frame& frame) {
    return frame.pixel_format == KOVA_PIXEL_FORMAT_SINGLE_8BIT && frame.width > 0 &&
           frame.height > 0 && frame.stride[0] >= frame.width &&
           FindBlockAround(platform, frame.phy_addr[0], FrameBytes(frame)) != nullptr;
}

bool Overlap(const kova_video_frame& a, const kova_video_frame& b) {
    return a.phy_addr[0] < b.phy_addr[0] + FrameBytes(b) &&
           b.phy_addr[0] < a.phy_addr[0] + FrameBytes(a);
}

bool IsValidTask(const Platform& platform, const kova_vgs_task& task) {
    return IsValidFrame(platform, task.in) && IsValidFrame(platform, task.out) &&
           !Overlap(task.in, task.out);
}

// A frame as this process sees it, for a scope.
class FrameWindow {
  public:
    FrameWindow(const Platform& platform, const kova_video_frame& frame)
        : window_(OpenWindow(platform.pool, frame.phy_addr[0] - platform.pool.base,
                             FrameBytes(frame))) {}
    ~FrameWindow() { CloseWindow(window_); }
    FrameWindow(const FrameWindow&) = delete;
    FrameWindow& operator=(const FrameWindow&) = delete;
    uint8_t* data() const { return window_.data; }

  private:
    Window window_;
};

int32_t RunTask(const Platform& platform, const kova_vgs_task& task) {
    const FrameWindow in(platform, task.in);
    const FrameWindow out(platform, task.out);
    if (in.data() == nullptr || out.data() == nullptr) {
        return KOVA_VGS_ERR_NOMEM;
    }
    orvo_grey::ScalePlane({in.data(), task.in.width, task.in.height, task.in.stride[0]},
                          {out.data(), task.out.width, task.out.height, task.out.stride[0]});
    return 0;
}

int32_t OpenJob(Platform& platform, int32_t* handle) {
    if (handle == nullptr) {
        return KOVA_VGS_ERR_NULL_PTR;
    }
    // Handles are positive and come back only after all others, so that a stale one is refused.
    do {
        platform.lastHandle = platform.lastHandle == std::numeric_limits<int32_t>::max()
                                  ? 1
                                  : platform.lastHandle + 1;
    } while (platform.jobs.count(platform.lastHandle) != 0);
    platform.jobs[platform.lastHandle] = Job{};
    *handle = platform.lastHandle;
    return 0;
}

int32_t AddTask(Platform& platform, int32_t handle, const kova_vgs_task* task, uint32_t mode) {
    const auto job = platform.jobs.find(handle);
    if (job == platform.jobs.end()) {
        return KOVA_VGS_ERR_UNEXIST;
    }
    if (task == nullptr) {
        return KOVA_VGS_ERR_NULL_PTR;
    }
    if (mode != KOVA_VGS_SCALE_COEF_NORMAL || !IsValidTask(platform, *task)) {
        return KOVA_VGS_ERR_ILLEGAL_PARAM;
    }
    job->second.tasks.push_back(*task);
    return 0;
}

int32_t RunJob(Platform& platform, int32_t handle) {
    const auto job = platform.jobs.find(handle);
    if (job == platform.jobs.end()) {
        return KOVA_VGS_ERR_UNEXIST;
    }
    for (const kova_vgs_task& task : job->second.tasks) {
        // A block may have been freed since the task was added.
        const int32_t result =
            IsValidTask(platform, task) ? RunTask(platform, task) : KOVA_VGS_ERR_ILLEGAL_PARAM;
        if (result != 0) {
            return result;
        }
    }
    platform.jobs.erase(job);
    return 0;
}

int32_t DropJob(Platform& platform, int32_t handle) {
    return platform.jobs.erase(handle) == 1 ? 0 : KOVA_VGS_ERR_UNEXIST;
}

} // namespace
} // namespace kova_host

using namespace kova_host;

int32_t KOVA_MPI_VGS_BeginJob(int32_t* handle) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    kova_mpi_host_call call = NewCall(kBeginJob);
    return MakeCall(platform.trace, kBeginJob, call, [&](Fault::Kind) {
        const int32_t result = OpenJob(platform, handle);
        if (result == 0) {
            call.handle = *handle;
        }
        return result;
    });
}

int32_t KOVA_MPI_VGS_AddScaleTask(int32_t handle, const kova_vgs_task* task, uint32_t mode) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    kova_mpi_host_call call = NewCall(kAddScaleTask);
    call.handle = handle;
    call.mode = mode;
    if (task != nullptr) {
        call.task = *task;
    }
    return MakeCall(platform.trace, kAddScaleTask, call,
                    [&](Fault::Kind) { return AddTask(platform, handle, task, mode); });
}

int32_t KOVA_MPI_VGS_EndJob(int32_t handle) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    kova_mpi_host_call call = NewCall(kEndJob);
    call.handle = handle;
    return MakeCall(platform.trace, kEndJob, call,
                    [&](Fault::Kind) { return RunJob(platform, handle); });
}

int32_t KOVA_MPI_VGS_CancelJob(int32_t handle) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    kova_mpi_host_call call = NewCall(kCancelJob);
    call.handle = handle;
    return MakeCall(platform.trace, kCancelJob, call,
                    [&](Fault::Kind) { return DropJob(platform, handle); });
}
