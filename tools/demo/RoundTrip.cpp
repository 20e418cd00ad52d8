#include "tools/demo/RoundTrip.h"

#include <cstdio>
#include <memory>
#include <sstream>

#include "dabo/krin/detail/ps/KrinDataEntity.h"
#include "lumotypes/Lumotypes.h"

namespace lumo::demo {

namespace {

using FloatArray = orlo::dabo::shared_vector<const float>;

std::string hex(const std::string& bytes) {
    std::string text;
    char buffer[4];
    for (unsigned char byte : bytes) {
        std::snprintf(buffer, sizeof buffer, "%02x", byte);
        text += buffer;
    }
    return text;
}

std::string show(const FloatArray& values) {
    std::ostringstream text;
    text << "[";
    for (std::size_t i = 0; i < values.size(); ++i) {
        text << (i == 0 ? "" : " ") << values[i];
    }
    text << "]";
    return text.str();
}

// What the demo writes into each topic, and how it shows what came back.

template <typename T>
void fillSpareChannels(T& e) {
    e.setSpare_channel_1(1.0f);
    e.setSpare_channel_2(2.0f);
    e.setSpare_channel_3(3.0f);
    e.setSpare_channel_4(4.0f);
    e.setSpare_channel_5(5.0f);
    e.setSpare_channel_6(6.0f);
}

void fill(lumotypes::InterfaceControlArgs& e) {
    e.setSystem(lumotypes::TEL_GP1_WFS);
    e.setDirection(lumotypes::OUTBOUND);
}
std::string describe(const lumotypes::InterfaceControlArgs& e) {
    return "system=" + std::to_string(e.getSystem()) + " direction=" + std::to_string(e.getDirection());
}

void fill(lumotypes::Dummy& e) { e.setDummy_param(lumotypes::TEL_M5); }
std::string describe(const lumotypes::Dummy& e) { return "dummy_param=" + std::to_string(e.getDummy_param()); }

void fill(lumotypes::LumoMode& e) {
    e.setControlMode(lumotypes::TEL_DRIVEN_WITH_HOKU_TT);
    e.setActiveCameraFs(lumotypes::IMG_PDS);
}
std::string describe(const lumotypes::LumoMode& e) {
    return "controlMode=" + std::to_string(e.getControlMode()) +
           " activeCameraFs=" + std::to_string(e.getActiveCameraFs());
}

void fill(lumotypes::RefPos& e) {
    e.setRefPosX(320);
    e.setRefPosY(240);
    e.setCentBoxWidth(16);
    e.setCentBoxHeight(12);
}
std::string describe(const lumotypes::RefPos& e) {
    std::ostringstream text;
    text << "refPos=(" << e.getRefPosX() << "," << e.getRefPosY() << ") box=" << e.getCentBoxWidth() << "x"
         << e.getCentBoxHeight();
    return text.str();
}

void fill(lumotypes::CentOpt& e) {
    e.setOptions(3);
    e.setThreshold(0.75f);
    e.setNumBrightestPixels(25);
}
std::string describe(const lumotypes::CentOpt& e) {
    std::ostringstream text;
    text << "options=" << e.getOptions() << " threshold=" << e.getThreshold()
         << " numBrightestPixels=" << e.getNumBrightestPixels();
    return text.str();
}

void fill(lumotypes::CentError& e) {
    e.setX_err_in_pixels(0.125f);
    e.setY_err_in_pixels(-0.25f);
    e.setFlux(1500.0f);
    e.setReadout_err(false);
}
std::string describe(const lumotypes::CentError& e) {
    std::ostringstream text;
    text << "err=(" << e.getX_err_in_pixels() << "," << e.getY_err_in_pixels() << ") flux=" << e.getFlux()
         << " readout_err=" << e.getReadout_err();
    return text.str();
}

void fill(lumotypes::SimCentErrors& e, const tools::PluginLoader& plugin) {
    for (auto imager : {e.getImg_gp1_err(), e.getImg_gp2_err(), e.getImg_gp3_err(), e.getImg_pds_err()}) {
        fill(*imager);
    }
    std::shared_ptr<lumotypes::CentError> element(
        static_cast<lumotypes::CentError*>(plugin.createDataEntity("CentError")));
    fill(*element);
    element->setFlux(42.0f);
    e.setWfs_gp1_err({element});
}
std::string describe(const lumotypes::SimCentErrors& e) {
    return "img_pds_err{" + describe(*e.getImg_pds_err()) + "} wfs_gp1_err[" +
           std::to_string(e.getWfs_gp1_err().size()) + "]{" + describe(*e.getWfs_gp1_err().at(0)) + "}";
}

void fill(lumotypes::FieldStablizationTopicIn& e) {
    e.setQuality(true);
    e.setSim(true);
    e.setTimestamp_utc(1700000000.5);
    e.setSample_id(1);
    e.setGp1_cent_err(FloatArray{0.1f, 0.2f});
    e.setGp1_az(10.0f);
    e.setGp2_az(20.0f);
    e.setGp3_az(30.0f);
    e.setPds_az(40.0f);
    e.setM5_tt_act(FloatArray{1.5f, -1.5f});
    e.setTel_north_angle(90.0f);
}
std::string describe(const lumotypes::FieldStablizationTopicIn& e) {
    std::ostringstream text;
    text << "sample_id=" << e.getSample_id() << " gp1_cent_err=" << show(e.getGp1_cent_err())
         << " m5_tt_act=" << show(e.getM5_tt_act()) << " tel_north_angle=" << e.getTel_north_angle();
    return text.str();
}

void fill(lumotypes::FieldStablizationTopicOut& e) {
    e.setQuality(true);
    e.setSim(false);
    e.setTimestamp_utc(1700000000.75);
    e.setSample_id(2);
    e.setU5_fs_tt(FloatArray{0.5f, 0.5f});
    e.setSample_id_in(1);
    e.setTimestamp_in_utc(1700000000.5);
    fillSpareChannels(e);
}
std::string describe(const lumotypes::FieldStablizationTopicOut& e) {
    std::ostringstream text;
    text << "sample_id=" << e.getSample_id() << " sample_id_in=" << e.getSample_id_in()
         << " u5_fs_tt=" << show(e.getU5_fs_tt()) << " spare_channel_6=" << e.getSpare_channel_6();
    return text.str();
}

void fill(lumotypes::HokuTopicIn& e) {
    e.setQuality(true);
    e.setSim(false);
    e.setTimestamp_utc(1700000001.0);
    e.setSample_id(3);
    e.setCoefficients(FloatArray{1.0f, 2.0f, 3.0f});
}
std::string describe(const lumotypes::HokuTopicIn& e) {
    return "sample_id=" + std::to_string(e.getSample_id()) + " coefficients=" + show(e.getCoefficients());
}

void fill(lumotypes::HokuTopicOut& e) {
    e.setQuality(false);
    e.setSim(true);
    e.setTimestamp_utc(1700000001.25);
    e.setSample_id(4);
    e.setHoku_command(FloatArray{-0.5f});
    e.setSample_id_in(3);
    e.setTimestamp_in_utc(1700000001.0);
    fillSpareChannels(e);
}
std::string describe(const lumotypes::HokuTopicOut& e) {
    return "sample_id=" + std::to_string(e.getSample_id()) + " hoku_command=" + show(e.getHoku_command());
}

template <typename T>
void fillFrom(T& e, const tools::PluginLoader&) {
    fill(e);
}
void fillFrom(lumotypes::SimCentErrors& e, const tools::PluginLoader& plugin) { fill(e, plugin); }

template <typename T>
bool roundTripOf(const tools::PluginLoader& plugin, const std::string& topic, std::ostream& out) {
    std::unique_ptr<T> sent(static_cast<T*>(plugin.createDataEntity(topic)));
    std::unique_ptr<T> received(static_cast<T*>(plugin.createDataEntity(topic)));
    fillFrom(*sent, plugin);

    // The transport's byte operations of the plug-in's entities.
    using Bytes = orlo::dabo::krin::detail::ps::KrinDataEntity<T>;
    auto* sentBytes = dynamic_cast<Bytes*>(sent.get());
    auto* receivedBytes = dynamic_cast<Bytes*>(received.get());
    if (sentBytes == nullptr || receivedBytes == nullptr) {
        out << topic << ": entity has no byte operations\n";
        return false;
    }
    std::string wire;
    std::string again;
    const bool ok = sentBytes->toByteArray(wire) && receivedBytes->fromByteArray(wire.data(), wire.size()) &&
                    receivedBytes->toByteArray(again) && again == wire;
    out << topic << ": " << wire.size() << " bytes " << hex(wire) << "\n"
        << "  sent     " << describe(*sent) << "\n"
        << "  received " << describe(*received) << "\n"
        << "  round trip " << (ok ? "ok" : "FAILED") << "\n";
    return ok;
}

}  // namespace

bool roundTrip(const tools::PluginLoader& plugin, const std::string& topic, std::ostream& out) {
#define LUMO_DEMO_ROUND_TRIP(T)                                \
    if (topic == #T) {                                         \
        return roundTripOf<lumotypes::T>(plugin, topic, out); \
    }
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_DEMO_ROUND_TRIP)
#undef LUMO_DEMO_ROUND_TRIP
    out << topic << ": no such topic\n";
    return false;
}

bool roundTripAll(const tools::PluginLoader& plugin, std::ostream& out) {
    bool ok = true;
#define LUMO_DEMO_ROUND_TRIP_ALL(T) ok = roundTrip(plugin, #T, out) && ok;
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_DEMO_ROUND_TRIP_ALL)
#undef LUMO_DEMO_ROUND_TRIP_ALL
    return ok;
}

}  // namespace lumo::demo
