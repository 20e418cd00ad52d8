#pragma once

#include <google/protobuf/repeated_ptr_field.h>

#include <memory>
#include <vector>

namespace orlo::dabo::krin::detail::binding {

/// Replaces a sequence of sub-messages by copies of `value`'s entities. A
/// binding object's message is copied as it stands, presence bits and unknown
/// fields included; any other implementation of `T` is first copied field by
/// field into a local binding object, which makes its element complete.
template <typename T, typename ST, typename PB>
void assignEntitySequence(google::protobuf::RepeatedPtrField<PB>& field,
                          const std::vector<std::shared_ptr<T>>& value) {
    field.Clear();
    for (const std::shared_ptr<T>& item : value) {
        const ST* impl = dynamic_cast<const ST*>(item.get());
        if (impl != nullptr) {
            field.Add()->CopyFrom(impl->wireMessage());
        } else {
            ST local;
            local.copy(*item);
            field.Add()->CopyFrom(local.wireMessage());
        }
    }
}

}  // namespace orlo::dabo::krin::detail::binding
