"""Samples as Python values: fields, enumerations, arrays, dicts, protobuf
messages, and the refusal of bad values."""

import enum
import gc

import numpy
import pytest

import lumotypes_krin as lk
import lumotypes_krin.Lumotypes_pb2 as wire
from conftest import full_sample


def test_every_topic_of_the_schema_is_a_class_with_its_fields_in_schema_order():
    schema = wire.DESCRIPTOR.message_types_by_name
    assert [cls.__name__ for cls in lk.TOPICS] == list(schema)
    for cls in lk.TOPICS:
        assert cls._fields == tuple(field.name for field in schema[cls.__name__].fields)
        assert cls.wire_type == schema[cls.__name__].full_name


def test_every_enumeration_is_an_int_enum_with_the_schema_values():
    schema = wire.DESCRIPTOR.enum_types_by_name
    assert [e.__name__ for e in lk.ENUMS] == list(schema)
    for e in lk.ENUMS:
        assert issubclass(e, enum.IntEnum)
        assert {m.name: m.value for m in e} == {v.name: v.number for v in schema[e.__name__].values}


def test_enum_fields_read_as_members_of_their_enumeration():
    sample = lk.LumoMode(controlMode=3, activeCameraFs=lk.Camera.WFS_PDS)
    assert sample.controlMode is lk.CtrlMode.TEL_DRIVEN_WITH_HOKU_TT
    assert sample.activeCameraFs is lk.Camera.WFS_PDS


def test_a_sample_is_made_from_keywords_from_a_dict_and_from_both():
    by_keywords = lk.RefPos(refPosX=1, refPosY=2, centBoxWidth=3, centBoxHeight=4)
    by_dict = lk.RefPos({"refPosX": 1, "refPosY": 2, "centBoxWidth": 3, "centBoxHeight": 4})
    mixed = lk.RefPos({"refPosX": 1, "refPosY": 2}, centBoxWidth=3, centBoxHeight=4)
    assert by_keywords == by_dict == mixed == lk.RefPos.from_dict(by_keywords.to_dict())
    assert by_keywords.to_dict() == {"refPosX": 1, "refPosY": 2, "centBoxWidth": 3, "centBoxHeight": 4}


@pytest.mark.parametrize("topic", lk.TOPICS, ids=lambda t: t.__name__)
def test_every_field_survives_to_dict_and_back(topic):
    sample = full_sample(topic)
    again = topic(sample.to_dict())
    assert again == sample
    assert again.to_dict() == sample.to_dict()


@pytest.mark.parametrize("topic", lk.TOPICS, ids=lambda t: t.__name__)
def test_every_field_survives_the_protobuf_message_of_the_schema_both_ways(topic):
    sample = full_sample(topic)
    message = sample.to_protobuf()
    assert type(message).DESCRIPTOR.full_name == topic.wire_type
    for name, value in sample.to_dict().items():
        got = getattr(message, name)
        if isinstance(value, list):
            assert len(got) == len(value), name
            for element, expected in zip(got, value):
                if isinstance(expected, dict):
                    assert {k: getattr(element, k) for k in expected} == pytest.approx(expected), name
                else:
                    assert element == pytest.approx(expected), name
        elif isinstance(value, dict):
            assert {k: getattr(got, k) for k in value} == pytest.approx(value), name
        else:
            assert got == pytest.approx(value), name
    assert topic.from_protobuf(message) == sample


def test_a_protobuf_message_of_another_topic_or_an_incomplete_one_is_refused():
    with pytest.raises(TypeError, match="LumoMode"):
        lk.LumoMode.from_protobuf(wire.RefPos())
    with pytest.raises(ValueError, match="activeCameraFs"):
        lk.LumoMode.from_protobuf(wire.LumoMode(controlMode=1))


def test_payload_bytes_round_trip_and_foreign_bytes_are_refused():
    sample = full_sample(lk.FieldStablizationTopicOut)
    assert lk.FieldStablizationTopicOut.from_bytes(sample.to_bytes()) == sample
    with pytest.raises(ValueError, match="FieldStablizationTopicOut"):
        lk.FieldStablizationTopicOut.from_bytes(b"\xff\xff\xff")


def test_an_array_is_a_read_only_view_of_the_samples_storage_kept_alive_by_the_sample():
    sample = lk.FieldStablizationTopicIn(gp1_cent_err=[1.0, 2.0, 3.0])
    first = sample.gp1_cent_err
    second = sample.gp1_cent_err
    assert first.base is sample and second.base is sample
    assert first.dtype == numpy.float32 and not first.flags.writeable and not first.flags.owndata
    # Two reads are two views of the same memory: nothing was copied.
    assert first.__array_interface__["data"][0] == second.__array_interface__["data"][0]
    assert numpy.shares_memory(first, second)
    with pytest.raises(ValueError):
        first[0] = 5.0
    del sample
    gc.collect()
    assert first.tolist() == [1.0, 2.0, 3.0]


def test_a_view_stays_valid_when_its_field_grows_and_sees_writes_that_fit():
    sample = lk.FieldStablizationTopicIn(gp1_cent_err=[1.0, 2.0])
    view = sample.gp1_cent_err
    sample.gp1_cent_err = numpy.arange(10000, dtype=numpy.float32)
    assert view.tolist() == [1.0, 2.0]
    assert sample.gp1_cent_err[9999] == 9999.0
    fresh = sample.gp1_cent_err
    sample.gp1_cent_err = [7.0, 8.0]
    assert fresh[:2].tolist() == [7.0, 8.0]


def test_arrays_accept_lists_tuples_generators_of_numbers_and_arrays_of_any_number_type():
    sample = lk.HokuTopicIn()
    for value in ([1, 2.5], (1, 2.5), numpy.array([1, 2.5]), numpy.array([1, 2], dtype=numpy.int64), range(1, 3)):
        sample.coefficients = value
        assert sample.coefficients.tolist() == [float(v) for v in value]
    sample.coefficients = []
    assert sample.coefficients.size == 0


@pytest.mark.parametrize(
    "field, value, error",
    [
        ("quality", 1, TypeError),
        ("quality", "yes", TypeError),
        ("timestamp_utc", "1.0", TypeError),
        ("timestamp_utc", None, TypeError),
        ("sample_id", 1.5, TypeError),
        ("sample_id", -1, ValueError),
        ("sample_id", 2**32, ValueError),
        ("coefficients", ["a", "b"], ValueError),
        ("coefficients", "1.0", TypeError),
        ("coefficients", [[1.0], [2.0]], TypeError),
        ("coefficients", 3.0, TypeError),
        ("coefficients", [object()], ValueError),
    ],
)
def test_a_bad_value_raises_with_the_fields_name(field, value, error):
    sample = lk.HokuTopicIn()
    with pytest.raises(error, match="HokuTopicIn.%s" % field):
        setattr(sample, field, value)
    with pytest.raises(error, match="HokuTopicIn.%s" % field):
        lk.HokuTopicIn(**{field: value})


def test_an_enum_value_outside_the_enumeration_or_of_another_enumeration_is_refused():
    sample = lk.LumoMode()
    with pytest.raises(ValueError, match="LumoMode.controlMode"):
        sample.controlMode = 99
    with pytest.raises(TypeError, match="LumoMode.controlMode"):
        sample.controlMode = lk.Camera.IMG_GP1
    with pytest.raises(TypeError, match="LumoMode.controlMode"):
        sample.controlMode = "TEL_DRIVEN"
    assert sample.controlMode is lk.CtrlMode.TEL_DRIVEN


def test_nested_topics_take_samples_or_dicts_and_refuse_anything_else():
    sample = lk.SimCentErrors(img_gp1_err=lk.CentError(flux=2.0), wfs_gp1_err=[{"flux": 3.0}])
    assert sample.img_gp1_err.flux == 2.0
    assert [e.flux for e in sample.wfs_gp1_err] == [3.0]
    nested = sample.img_pds_err
    nested.flux = 4.5
    assert sample.img_pds_err.flux == 4.5
    with pytest.raises(TypeError, match="SimCentErrors.img_gp1_err"):
        sample.img_gp1_err = lk.RefPos()
    with pytest.raises(TypeError, match="SimCentErrors.wfs_gp1_err"):
        sample.wfs_gp1_err = [1.0]
    with pytest.raises(TypeError, match="CentError has no field 'nope'"):
        sample.img_gp1_err = {"nope": 1}


def test_an_unknown_field_name_is_refused():
    with pytest.raises(TypeError, match="LumoMode has no field 'mode'"):
        lk.LumoMode(mode=1)
    with pytest.raises(TypeError, match="mapping"):
        lk.LumoMode([1, 2])


def test_a_copy_is_independent():
    sample = full_sample(lk.CentOpt)
    copy = sample.copy()
    assert copy == sample
    copy.threshold = -1.0
    assert sample.threshold != -1.0
