#pragma once

// Two small topics for the engine tests: `Sensor`, keyed by its id, and
// `Reading`, without a key like every topic of the package. Each has a
// binding class (`...Impl`) and a host's own implementation (`Foreign...`)
// that the engine must refuse.
#include <memory>

#include "dabo/ps/DataEntity.h"

namespace engine_test {

class Sensor : public virtual orlo::dabo::ps::DataEntity<Sensor> {
public:
    virtual int getId() const = 0;
    virtual void setId(int id) = 0;
    virtual double getValue() const = 0;
    virtual void setValue(double value) = 0;
};

class SensorImpl : public virtual Sensor {
public:
    SensorImpl() = default;
    SensorImpl(int id, double value) : id(id), value(value) {}

    std::unique_ptr<Sensor> clone() const override { return std::make_unique<SensorImpl>(id, value); }
    bool keyEquals(const Sensor& other) const override { return id == other.getId(); }
    std::unique_ptr<Sensor> cloneKey() const override { return std::make_unique<SensorImpl>(id, 0.0); }
    bool hasKey() const override { return true; }

    int getId() const override { return id; }
    void setId(int newId) override { id = newId; }
    double getValue() const override { return value; }
    void setValue(double newValue) override { value = newValue; }

    void copy(const Sensor& source) {
        setId(source.getId());
        setValue(source.getValue());
    }

private:
    int id = 0;
    double value = 0.0;
};

class ForeignSensor : public virtual Sensor {
public:
    ForeignSensor(int id, double value) : id(id), value(value) {}

    std::unique_ptr<Sensor> clone() const override { return std::make_unique<ForeignSensor>(id, value); }
    bool keyEquals(const Sensor& other) const override { return id == other.getId(); }
    std::unique_ptr<Sensor> cloneKey() const override { return std::make_unique<ForeignSensor>(id, 0.0); }
    bool hasKey() const override { return true; }

    int getId() const override { return id; }
    void setId(int newId) override { id = newId; }
    double getValue() const override { return value; }
    void setValue(double newValue) override { value = newValue; }

private:
    int id;
    double value;
};

class Reading : public virtual orlo::dabo::ps::DataEntity<Reading> {
public:
    virtual double getValue() const = 0;
    virtual void setValue(double value) = 0;
};

class ReadingImpl : public virtual Reading {
public:
    ReadingImpl() = default;
    explicit ReadingImpl(double value) : value(value) {}

    std::unique_ptr<Reading> clone() const override { return std::make_unique<ReadingImpl>(value); }
    bool keyEquals(const Reading&) const override { return false; }
    std::unique_ptr<Reading> cloneKey() const override { return std::make_unique<ReadingImpl>(); }
    bool hasKey() const override { return false; }

    double getValue() const override { return value; }
    void setValue(double newValue) override { value = newValue; }

    void copy(const Reading& source) { setValue(source.getValue()); }

private:
    double value = 0.0;
};

class ForeignReading : public virtual Reading {
public:
    explicit ForeignReading(double value) : value(value) {}

    std::unique_ptr<Reading> clone() const override { return std::make_unique<ForeignReading>(value); }
    bool keyEquals(const Reading&) const override { return false; }
    std::unique_ptr<Reading> cloneKey() const override { return std::make_unique<ForeignReading>(0.0); }
    bool hasKey() const override { return false; }

    double getValue() const override { return value; }
    void setValue(double newValue) override { value = newValue; }

private:
    double value;
};

}  // namespace engine_test
