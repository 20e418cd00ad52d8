#pragma once

// Deterministic samples of every topic, made the same way in the publishing
// helper and in the subscribing test, and a field-by-field comparison. Every
// field gets a value of its own; sample i of a topic has arrays of length
// 0, 1 or 1000 and CentError sequences of length 0, 1 or 5.

#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "dabo/utility/shared_vector.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/host/Plugin.h"

namespace lumo::e2e {

constexpr int samplesPerTopic = 3;

using CentErrorMaker = std::function<std::shared_ptr<lumotypes::CentError>()>;

/// Makes CentError entities with the plug-in's exported data entity factory.
inline CentErrorMaker centErrorMaker(const lumotypes::host::Plugin& plugin) {
    return [&plugin] { return std::shared_ptr<lumotypes::CentError>(plugin.createDataEntity<lumotypes::CentError>()); };
}

/// The values of one sample, field after field.
class Values {
public:
    explicit Values(int index) : index(index) {}
    std::uint32_t u32() { return 4000000000u - static_cast<std::uint32_t>(index) * 1000u - next(); }
    float f() { return static_cast<float>(index) * 100.5f + static_cast<float>(next()) * 0.25f + 0.125f; }
    double d() { return 1.7e9 + index + next() / 8.0; }
    bool b() { return (index + next()) % 2 == 1; }
    int e(int count) { return (index * 3 + next()) % count; }
    orlo::dabo::shared_vector<const float> array() {
        static const std::size_t lengths[] = {0, 1, 1000};
        const int field = next();
        std::vector<float> values(lengths[index % 3]);
        for (std::size_t i = 0; i < values.size(); ++i) {
            values[i] = static_cast<float>(field) * 1000.0f + static_cast<float>(i) * 0.5f - 7.0f;
        }
        return orlo::dabo::shared_vector<const float>(values);
    }
    std::shared_ptr<lumotypes::CentError> centError(const CentErrorMaker& make) {
        auto error = make();
        error->setX_err_in_pixels(f());
        error->setY_err_in_pixels(f());
        error->setFlux(f());
        error->setReadout_err(b());
        return error;
    }
    std::vector<std::shared_ptr<lumotypes::CentError>> centErrors(const CentErrorMaker& make) {
        static const std::size_t lengths[] = {0, 1, 5};
        std::vector<std::shared_ptr<lumotypes::CentError>> errors;
        for (std::size_t i = 0; i < lengths[index % 3]; ++i) {
            errors.push_back(centError(make));
        }
        return errors;
    }

private:
    int next() { return ++field; }
    int index;
    int field = 0;
};

inline void compareArrays(const char* stem, const orlo::dabo::shared_vector<const float>& expected,
                          const orlo::dabo::shared_vector<const float>& actual, std::ostream& out) {
    if (expected.size() != actual.size()) {
        out << stem << "(length " << expected.size() << " != " << actual.size() << ") ";
        return;
    }
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (!(expected[i] == actual[i])) {
            out << stem << "[" << i << "] ";
            return;
        }
    }
}

// Field lists, in schema order: U32, F(loat), D(ouble), B(ool), E(num), A(rray), N(ested), S(equence).
#define LUMO_E2E_FIELDS_InterfaceControlArgs(U32, F, D, B, E, A, N, S) \
    E(System, TelescopeSystem, 15) E(Direction, DataFlow, 4)
#define LUMO_E2E_FIELDS_Dummy(U32, F, D, B, E, A, N, S) E(Dummy_param, TelescopeSystem, 15)
#define LUMO_E2E_FIELDS_LumoMode(U32, F, D, B, E, A, N, S) E(ControlMode, CtrlMode, 6) E(ActiveCameraFs, Camera, 9)
#define LUMO_E2E_FIELDS_RefPos(U32, F, D, B, E, A, N, S) U32(RefPosX) U32(RefPosY) U32(CentBoxWidth) U32(CentBoxHeight)
#define LUMO_E2E_FIELDS_CentOpt(U32, F, D, B, E, A, N, S) U32(Options) F(Threshold) U32(NumBrightestPixels)
#define LUMO_E2E_FIELDS_CentError(U32, F, D, B, E, A, N, S) \
    F(X_err_in_pixels) F(Y_err_in_pixels) F(Flux) B(Readout_err)
#define LUMO_E2E_FIELDS_SimCentErrors(U32, F, D, B, E, A, N, S)                                          \
    N(Img_gp1_err) N(Img_gp2_err) N(Img_gp3_err) N(Img_pds_err) S(Wfs_gp1_err) S(Wfs_gp2_err) S(Wfs_gp3_err) \
    S(Wfs_pds_err)
#define LUMO_E2E_FIELDS_FieldStablizationTopicIn(U32, F, D, B, E, A, N, S)                                      \
    B(Quality) B(Sim) D(Timestamp_utc) U32(Sample_id) A(Gp1_cent_err) A(Gp2_cent_err) A(Gp3_cent_err)           \
    A(Pds_cent_err) A(Gp1_pos_error) A(Gp2_pos_error) A(Gp3_pos_error) A(Pds_pos_error) F(Gp1_az) F(Gp2_az)     \
    F(Gp3_az) F(Pds_az) A(M5_tt_act) A(M4_tt_applied) A(Tt_err_ins) A(Tt_ref_ins) F(Tel_north_angle)
#define LUMO_E2E_FIELDS_FieldStablizationTopicOut(U32, F, D, B, E, A, N, S)                                 \
    B(Quality) B(Sim) D(Timestamp_utc) U32(Sample_id) A(Gp1_cmd) A(Gp2_cmd) A(Gp3_cmd) A(U5_fs_tt)         \
    A(U5_fs_tt_in) A(U4_fs_tt) A(U4_fs_tt_in) A(Ms_fs_tt) A(Ms_fs_tt_in) A(Gp1_cent_err) A(Gp2_cent_err)    \
    A(Gp3_cent_err) A(Tt_err) U32(Sample_id_in) D(Timestamp_in_utc) F(Spare_channel_1) F(Spare_channel_2) \
    F(Spare_channel_3) F(Spare_channel_4) F(Spare_channel_5) F(Spare_channel_6)
#define LUMO_E2E_FIELDS_HokuTopicIn(U32, F, D, B, E, A, N, S) \
    B(Quality) B(Sim) D(Timestamp_utc) U32(Sample_id) A(Coefficients) A(M4_setpoints_applied) A(M4_setpoints_hoku)
#define LUMO_E2E_FIELDS_HokuTopicOut(U32, F, D, B, E, A, N, S)                                               \
    B(Quality) B(Sim) D(Timestamp_utc) U32(Sample_id) A(Hoku_command) U32(Sample_id_in) D(Timestamp_in_utc) \
    F(Spare_channel_1) F(Spare_channel_2) F(Spare_channel_3) F(Spare_channel_4) F(Spare_channel_5)         \
    F(Spare_channel_6)

template <typename T>
struct TopicSamples;

/// Compares two CentErrors field by field, naming the differing fields after `prefix`.
inline void compareCentError(const std::string& prefix, const lumotypes::CentError& e, const lumotypes::CentError& a,
                             std::ostream& out);

#define LUMO_E2E_FILL_U32(Stem) sample.set##Stem(values.u32());
#define LUMO_E2E_FILL_F(Stem) sample.set##Stem(values.f());
#define LUMO_E2E_FILL_D(Stem) sample.set##Stem(values.d());
#define LUMO_E2E_FILL_B(Stem) sample.set##Stem(values.b());
#define LUMO_E2E_FILL_E(Stem, Enum, Count) sample.set##Stem(static_cast<lumotypes::Enum>(values.e(Count)));
#define LUMO_E2E_FILL_A(Stem) sample.set##Stem(values.array());
#define LUMO_E2E_FILL_N(Stem) sample.set##Stem(values.centError(make));
#define LUMO_E2E_FILL_S(Stem) sample.set##Stem(values.centErrors(make));

#define LUMO_E2E_CMP_SCALAR(Stem)                  \
    if (!(e.get##Stem() == a.get##Stem())) {       \
        out << prefix << #Stem << ' ';             \
    }
#define LUMO_E2E_CMP_E(Stem, Enum, Count) LUMO_E2E_CMP_SCALAR(Stem)
#define LUMO_E2E_CMP_A(Stem) compareArrays(#Stem, e.get##Stem(), a.get##Stem(), out);
#define LUMO_E2E_CMP_N(Stem) compareCentError(prefix + #Stem + ".", *e.get##Stem(), *a.get##Stem(), out);
#define LUMO_E2E_CMP_S(Stem)                                                                         \
    {                                                                                                \
        const auto expectedErrors = e.get##Stem();                                                   \
        const auto actualErrors = a.get##Stem();                                                     \
        if (expectedErrors.size() != actualErrors.size()) {                                          \
            out << prefix << #Stem << "(length " << expectedErrors.size() << " != " << actualErrors.size() \
                << ") ";                                                                             \
        } else {                                                                                     \
            for (std::size_t i = 0; i < expectedErrors.size(); ++i) {                                \
                compareCentError(prefix + #Stem + "[" + std::to_string(i) + "].", *expectedErrors[i],  \
                                 *actualErrors[i], out);                                             \
            }                                                                                        \
        }                                                                                            \
    }

#define LUMO_E2E_TOPIC_SAMPLES(Name)                                                                              \
    template <>                                                                                                   \
    struct TopicSamples<lumotypes::Name> {                                                                        \
        static constexpr const char* name = #Name;                                                                \
        static void fill(lumotypes::Name& sample, int index, const CentErrorMaker& make) {                       \
            Values values(index);                                                                                 \
            (void)make;                                                                                           \
            LUMO_E2E_FIELDS_##Name(LUMO_E2E_FILL_U32, LUMO_E2E_FILL_F, LUMO_E2E_FILL_D, LUMO_E2E_FILL_B,          \
                                   LUMO_E2E_FILL_E, LUMO_E2E_FILL_A, LUMO_E2E_FILL_N, LUMO_E2E_FILL_S)            \
        }                                                                                                         \
        /* Empty if equal, else the names of the fields that differ. */                                           \
        static std::string differences(const lumotypes::Name& e, const lumotypes::Name& a,                        \
                                       const std::string& prefix = "") {                                          \
            std::ostringstream out;                                                                               \
            LUMO_E2E_FIELDS_##Name(LUMO_E2E_CMP_SCALAR, LUMO_E2E_CMP_SCALAR, LUMO_E2E_CMP_SCALAR,                 \
                                   LUMO_E2E_CMP_SCALAR, LUMO_E2E_CMP_E, LUMO_E2E_CMP_A, LUMO_E2E_CMP_N,           \
                                   LUMO_E2E_CMP_S)                                                                \
            return out.str();                                                                                     \
        }                                                                                                         \
    };
LUMOTYPES_FOR_EACH_TOPIC(LUMO_E2E_TOPIC_SAMPLES)

inline void compareCentError(const std::string& prefix, const lumotypes::CentError& e, const lumotypes::CentError& a,
                             std::ostream& out) {
    out << TopicSamples<lumotypes::CentError>::differences(e, a, prefix);
}

}  // namespace lumo::e2e
