// SPDX-License-Identifier: MIT
#include "gallery/gallery_writer.h"

#include <algorithm>

#include "gallery/version_2.h"

namespace kova_cli {
namespace {

// All zeros until the end: no gallery.
constexpr uint8_t kNoHeader[sizeof(Version2Header)] = {};

} // namespace

GalleryWriter::GalleryWriter(const std::string& path, const Sha256& models)
    : file_(path, true, true), head_(EmptyVersion2(models)) {
    file_.Write(kNoHeader);
}

void GalleryWriter::Add(const float* feature, std::string_view name) {
    if (!IsFeature(feature)) {
        FailNoFeature(head_.count + features_.size());
    }
    std::copy_n(feature, kFeatureLength, features_.emplace_back().begin());
    names_.emplace_back(name);
    if (features_.size() == kBlockEntries) {
        WriteBlock();
    }
}

void GalleryWriter::WriteBlock() {
    std::vector<uint8_t> bytes;
    AppendBlock(bytes, head_, features_, names_);
    file_.Write(bytes);
    features_.clear();
    names_.clear();
}

uint64_t GalleryWriter::Finish() {
    if (!features_.empty()) {
        WriteBlock();
    }
    const Version2Header header = HeaderOf(head_);
    file_.WriteAt(0, {reinterpret_cast<const uint8_t*>(&header), sizeof header});
    file_.Finish();
    file_.MoveToPlace();
    return head_.count;
}

} // namespace kova_cli
