// SPDX-License-Identifier: MIT
#include "files/csv.h"

#include <algorithm>

#include "files/failure.h"

namespace kova_cli {
namespace {

constexpr size_t kLongestLine = 65536;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

std::string TakeField(std::string_view& rest, char separator) {
    std::string field;
    if (!rest.starts_with('"')) {
        const size_t end = std::min(rest.find(separator), rest.size());
        field = rest.substr(0, end);
        rest.remove_prefix(end);
        return field;
    }
    rest.remove_prefix(1);
    while (true) {
        const size_t quote = rest.find('"');
        if (quote == std::string_view::npos) {
            throw Failure("has a quotation mark without its end");
        }
        field += rest.substr(0, quote);
        rest.remove_prefix(quote + 1);
        if (!rest.starts_with('"')) {
            return field;
        }
        field += '"'; // doubled inside a field
        rest.remove_prefix(1);
    }
}

// Bytes of a file one after another.
class ByteStream {
  public:
    explicit ByteStream(const InputFile& file) : file_(file), left_(file.size()) {}

    // False at the end.
    bool Next(char& byte) {
        if (at_ == piece_.size() && !Refill()) {
            return false;
        }
        byte = piece_[at_++];
        return true;
    }

  private:
    bool Refill() {
        piece_.resize(static_cast<size_t>(std::min<uint64_t>(left_, 65536)));
        if (piece_.empty()) {
            return false;
        }
        file_.Read(file_.size() - left_, piece_.data(), piece_.size());
        left_ -= piece_.size();
        at_ = 0;
        return true;
    }

    const InputFile& file_;
    uint64_t left_;
    std::string piece_;
    size_t at_ = 0;
};

} // namespace

std::string CsvField(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        return std::string(text);
    }
    std::string field = "\"";
    for (const char character : text) {
        field += character == '"' ? "\"\"" : std::string(1, character);
    }
    return field + "\"";
}

std::vector<std::string> CsvFields(std::string_view line, char separator) {
    std::vector<std::string> fields = {TakeField(line, separator)};
    while (line.starts_with(separator)) {
        line.remove_prefix(1);
        fields.push_back(TakeField(line, separator));
    }
    if (!line.empty()) {
        throw Failure("goes on behind a quotation mark; put the separator there");
    }
    return fields;
}

void ReadLines(const InputFile& file,
               const std::function<void(const std::string& line, size_t number)>& take) {
    ByteStream bytes(file);
    std::string line;
    size_t number = 1;
    const auto end = [&] {
        if (number == 1 && line.starts_with(kUtf8Mark)) {
            line.erase(0, kUtf8Mark.size());
        }
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        take(line, number++);
        line.clear();
    };
    for (char byte = 0; bytes.Next(byte);) {
        if (byte == '\n') {
            end();
            continue;
        }
        line += byte;
        if (line.size() > kLongestLine) {
            throw Failure("line " + std::to_string(number) + " is too long");
        }
    }
    if (!line.empty()) {
        end();
    }
}

} // namespace kova_cli
