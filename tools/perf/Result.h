#pragma once

#include <string>
#include <utility>
#include <vector>

namespace lumo::perf {

/// The figures of one run, in the order given, printed as one line: either
/// "RESULT key=value ..." for a reader, or one JSON object for the scripts
/// that gather runs into the performance report.
class Result {
public:
    Result& text(const std::string& key, const std::string& value);
    /// `value` with `decimals` digits after the point.
    Result& number(const std::string& key, double value, int decimals);
    /// `value` as true or false.
    Result& flag(const std::string& key, bool value);

    std::string line(bool json) const;

private:
    struct Field {
        std::string key;
        std::string value;
        bool quoted;
    };
    std::vector<Field> fields;
};

}  // namespace lumo::perf
