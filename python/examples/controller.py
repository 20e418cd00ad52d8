#!/usr/bin/python3
"""A field stabilisation controller in Python: for every FieldStablizationTopicIn
it receives, it publishes a FieldStablizationTopicOut command carrying the
input's sample_id and timestamp, with the probes' commands against their
centroid errors. It uses the topic paths of lumo-demo (/lumo/demo/<Topic>).

    python3 controller.py [--port 7400] [--host 127.0.0.1] [--gain 0.5] [--duration SEC]

Feed it with krin-pub and watch it with krin-tap, for example:
    krin-tap krin.ps://127.0.0.1:7401/lumo/demo/FieldStablizationTopicOut FieldStablizationTopicOut
"""

import argparse
import sys
import time

import numpy

import lumotypes_krin as lk


def command_for(sample, gain):
    """The command answering one input sample."""
    return lk.FieldStablizationTopicOut(
        quality=sample.quality,
        sim=sample.sim,
        timestamp_utc=time.time(),
        sample_id=sample.sample_id,
        sample_id_in=sample.sample_id,
        timestamp_in_utc=sample.timestamp_utc,
        gp1_cent_err=sample.gp1_cent_err,  # a view of the input: no copy until it is written
        gp2_cent_err=sample.gp2_cent_err,
        gp3_cent_err=sample.gp3_cent_err,
        gp1_cmd=numpy.multiply(sample.gp1_cent_err, -gain),
        gp2_cmd=numpy.multiply(sample.gp2_cent_err, -gain),
        gp3_cmd=numpy.multiply(sample.gp3_cent_err, -gain),
        tt_err=sample.tt_err_ins,
    )


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--host", default="127.0.0.1")
    parser.add_argument("--port", type=int, default=7400, help="port of the inputs; commands go to port + 1")
    parser.add_argument("--gain", type=float, default=0.5)
    parser.add_argument("--duration", type=float, default=None, help="seconds to run (default: until Ctrl-C)")
    args = parser.parse_args()
    inputs = "krin.ps://%s:%d/lumo/demo/FieldStablizationTopicIn" % (args.host, args.port)
    commands = "krin.ps://%s:%d/lumo/demo/FieldStablizationTopicOut" % (args.host, args.port + 1)
    answered = 0
    deadline = None if args.duration is None else time.monotonic() + args.duration
    try:
        with lk.Runtime() as rt, rt.subscriber(inputs, lk.FieldStablizationTopicIn) as sub, rt.publisher(
            commands, lk.FieldStablizationTopicOut
        ) as pub:
            print("controller: %s -> %s" % (inputs, commands), flush=True)
            while deadline is None or time.monotonic() < deadline:
                for sample in sub.read(0, 0.2):
                    pub.publish(command_for(sample, args.gain))
                    answered += 1
    except KeyboardInterrupt:
        pass
    print("controller: answered %d samples" % answered)
    return 0


if __name__ == "__main__":
    sys.exit(main())
