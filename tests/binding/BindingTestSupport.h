#pragma once

// Shared by the binding tests: byte helpers, one fixed sample per topic with
// its bytes worked out by hand from the wire rules, and host-written
// implementations of topic types that have no binding class behind them.

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Lumotypes.pb.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace lumo::test {

inline std::string hex(const std::string& bytes) {
    std::string text;
    char buffer[4];
    for (unsigned char byte : bytes) {
        std::snprintf(buffer, sizeof buffer, "%02X", byte);
        if (!text.empty()) {
            text += ' ';
        }
        text += buffer;
    }
    return text;
}

inline std::string unhex(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 3) {
        bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

template <typename ST>
std::string bytesOf(const ST& entity) {
    std::string bytes;
    EXPECT_TRUE(entity.toByteArray(bytes));
    return bytes;
}

inline orlo::dabo::shared_vector<const float> floats(std::vector<float> values) {
    return orlo::dabo::shared_vector<const float>(values);
}

// Drops the leading placeholder so that the topic list can be spread with a
// comma before each element.
template <typename First, typename... Rest>
struct DropFirst {
    using type = ::testing::Types<Rest...>;
};
#define LUMO_TEST_BINDING(T) , ::lumotypes::krin::T##Impl
using AllBindings = DropFirst<void LUMOTYPES_FOR_EACH_TOPIC(LUMO_TEST_BINDING)>::type;
#undef LUMO_TEST_BINDING

// One complete sample per topic, and its serialised form.

inline void fillGolden(lumotypes::InterfaceControlArgs& e) {
    e.setSystem(lumotypes::TEL_GP1_WFS);
    e.setDirection(lumotypes::OUTBOUND);
}
inline const char* goldenHex(const lumotypes::InterfaceControlArgs*) { return "08 09 10 01"; }

inline void fillGolden(lumotypes::Dummy& e) { e.setDummy_param(lumotypes::TEL_M5); }
inline const char* goldenHex(const lumotypes::Dummy*) { return "08 02"; }

inline void fillGolden(lumotypes::LumoMode& e) {
    e.setControlMode(lumotypes::INS_DRIVEN_CASCADE);
    e.setActiveCameraFs(lumotypes::WFS_PDS);
}
inline const char* goldenHex(const lumotypes::LumoMode*) { return "08 02 10 08"; }

inline void fillGolden(lumotypes::RefPos& e) {
    e.setRefPosX(1);
    e.setRefPosY(2);
    e.setCentBoxWidth(3);
    e.setCentBoxHeight(4);
}
inline const char* goldenHex(const lumotypes::RefPos*) {
    return "0D 01 00 00 00 15 02 00 00 00 1D 03 00 00 00 25 04 00 00 00";
}

inline void fillGolden(lumotypes::CentOpt& e) {
    e.setOptions(7);
    e.setThreshold(0.5f);
    e.setNumBrightestPixels(9);
}
inline const char* goldenHex(const lumotypes::CentOpt*) { return "0D 07 00 00 00 15 00 00 00 3F 1D 09 00 00 00"; }

inline void fillCentError(lumotypes::CentError& e, float x, float y, float flux, bool readoutErr) {
    e.setX_err_in_pixels(x);
    e.setY_err_in_pixels(y);
    e.setFlux(flux);
    e.setReadout_err(readoutErr);
}
inline void fillGolden(lumotypes::CentError& e) { fillCentError(e, 1.0f, -2.0f, 0.5f, true); }
inline const char* goldenHex(const lumotypes::CentError*) {
    return "0D 00 00 80 3F 15 00 00 00 C0 1D 00 00 00 3F 20 01";
}

inline std::shared_ptr<lumotypes::CentError> centError(float x, float y, float flux, bool readoutErr) {
    auto e = std::make_shared<lumotypes::krin::CentErrorImpl>();
    fillCentError(*e, x, y, flux, readoutErr);
    return e;
}
inline void fillGolden(lumotypes::SimCentErrors& e) {
    e.setImg_gp1_err(centError(1, 1, 1, false));
    e.setImg_gp2_err(centError(2, 2, 2, false));
    e.setImg_gp3_err(centError(3, 3, 3, false));
    e.setImg_pds_err(centError(4, 4, 4, true));
    e.setWfs_gp2_err({centError(0.25f, 0.5f, 0.75f, true)});
}
inline const char* goldenHex(const lumotypes::SimCentErrors*) {
    return "0A 11 0D 00 00 80 3F 15 00 00 80 3F 1D 00 00 80 3F 20 00 12 11 0D 00 00 00 40 15 00 00 00 40 1D 00 00 "
           "00 40 20 00 1A 11 0D 00 00 40 40 15 00 00 40 40 1D 00 00 40 40 20 00 22 11 0D 00 00 80 40 15 00 00 80 "
           "40 1D 00 00 80 40 20 01 32 11 0D 00 00 80 3E 15 00 00 00 3F 1D 00 00 40 3F 20 01";
}

inline void fillGolden(lumotypes::FieldStablizationTopicIn& e) {
    e.setQuality(true);
    e.setSim(false);
    e.setTimestamp_utc(1.5);
    e.setSample_id(42);
    e.setGp1_cent_err(floats({1.0f, 2.0f}));
    e.setGp1_az(0.5f);
    e.setGp2_az(1.0f);
    e.setGp3_az(1.5f);
    e.setPds_az(2.0f);
    e.setM5_tt_act(floats({3.0f}));
    e.setTel_north_angle(0.25f);
}
inline const char* goldenHex(const lumotypes::FieldStablizationTopicIn*) {
    return "08 01 10 00 19 00 00 00 00 00 00 F8 3F 25 2A 00 00 00 2A 08 00 00 80 3F 00 00 00 40 6D 00 00 00 3F 75 "
           "00 00 80 3F 7D 00 00 C0 3F 85 01 00 00 00 40 8A 01 04 00 00 40 40 AD 01 00 00 80 3E";
}

inline void fillGolden(lumotypes::FieldStablizationTopicOut& e) {
    e.setQuality(false);
    e.setSim(true);
    e.setTimestamp_utc(2.5);
    e.setSample_id(7);
    e.setTt_err(floats({-1.0f}));
    e.setSample_id_in(6);
    e.setTimestamp_in_utc(2.0);
    e.setSpare_channel_1(1.0f);
    e.setSpare_channel_2(2.0f);
    e.setSpare_channel_3(3.0f);
    e.setSpare_channel_4(4.0f);
    e.setSpare_channel_5(5.0f);
    e.setSpare_channel_6(6.0f);
}
inline const char* goldenHex(const lumotypes::FieldStablizationTopicOut*) {
    return "08 00 10 01 19 00 00 00 00 00 00 04 40 25 07 00 00 00 8A 01 04 00 00 80 BF 95 01 06 00 00 00 99 01 00 "
           "00 00 00 00 00 00 40 A5 01 00 00 80 3F AD 01 00 00 00 40 B5 01 00 00 40 40 BD 01 00 00 80 40 C5 01 00 "
           "00 A0 40 CD 01 00 00 C0 40";
}

inline void fillGolden(lumotypes::HokuTopicIn& e) {
    e.setQuality(true);
    e.setSim(true);
    e.setTimestamp_utc(3.0);
    e.setSample_id(1);
    e.setM4_setpoints_applied(floats({0.5f, 0.25f}));
}
inline const char* goldenHex(const lumotypes::HokuTopicIn*) {
    return "08 01 10 01 19 00 00 00 00 00 00 08 40 25 01 00 00 00 32 08 00 00 00 3F 00 00 80 3E";
}

inline void fillGolden(lumotypes::HokuTopicOut& e) {
    e.setQuality(true);
    e.setSim(false);
    e.setTimestamp_utc(4.0);
    e.setSample_id(2);
    e.setHoku_command(floats({1.0f}));
    e.setSample_id_in(1);
    e.setTimestamp_in_utc(3.0);
    e.setSpare_channel_1(0.0f);
    e.setSpare_channel_2(0.0f);
    e.setSpare_channel_3(0.0f);
    e.setSpare_channel_4(0.0f);
    e.setSpare_channel_5(0.0f);
    e.setSpare_channel_6(-1.0f);
}
inline const char* goldenHex(const lumotypes::HokuTopicOut*) {
    return "08 01 10 00 19 00 00 00 00 00 00 10 40 25 02 00 00 00 2A 04 00 00 80 3F 35 01 00 00 00 39 00 00 00 00 "
           "00 00 08 40 45 00 00 00 00 4D 00 00 00 00 55 00 00 00 00 5D 00 00 00 00 65 00 00 00 00 6D 00 00 80 BF";
}

template <typename ST>
std::string goldenBytes() {
    return unhex(goldenHex(static_cast<const typename ST::Topic*>(nullptr)));
}

// Topic implementations written by a host, with no binding class behind them.

class ForeignRefPos : public lumotypes::RefPos {
public:
    std::uint32_t x = 0, y = 0, width = 0, height = 0;

    std::unique_ptr<lumotypes::RefPos> clone() const override { return std::make_unique<ForeignRefPos>(*this); }
    bool keyEquals(const lumotypes::RefPos&) const override { return false; }
    std::unique_ptr<lumotypes::RefPos> cloneKey() const override { return std::make_unique<ForeignRefPos>(); }
    bool hasKey() const override { return false; }
    std::uint32_t getRefPosX() const override { return x; }
    void setRefPosX(std::uint32_t value) override { x = value; }
    std::uint32_t getRefPosY() const override { return y; }
    void setRefPosY(std::uint32_t value) override { y = value; }
    std::uint32_t getCentBoxWidth() const override { return width; }
    void setCentBoxWidth(std::uint32_t value) override { width = value; }
    std::uint32_t getCentBoxHeight() const override { return height; }
    void setCentBoxHeight(std::uint32_t value) override { height = value; }
};

class ForeignCentError : public lumotypes::CentError {
public:
    float x = 0, y = 0, flux = 0;
    bool readoutErr = false;

    std::unique_ptr<lumotypes::CentError> clone() const override { return std::make_unique<ForeignCentError>(*this); }
    bool keyEquals(const lumotypes::CentError&) const override { return false; }
    std::unique_ptr<lumotypes::CentError> cloneKey() const override { return std::make_unique<ForeignCentError>(); }
    bool hasKey() const override { return false; }
    float getX_err_in_pixels() const override { return x; }
    void setX_err_in_pixels(float value) override { x = value; }
    float getY_err_in_pixels() const override { return y; }
    void setY_err_in_pixels(float value) override { y = value; }
    float getFlux() const override { return flux; }
    void setFlux(float value) override { flux = value; }
    bool getReadout_err() const override { return readoutErr; }
    void setReadout_err(bool value) override { readoutErr = value; }
};

}  // namespace lumo::test
