"""What the reports of the fast path on the wire have to hold to: those of reflect_bench, without and with workers, and of clock_error."""
from reports import Limit

FACTS = ("no request lost",)  # targets of reflect_bench that hold on a busy machine as well
LEAST_GAIN = 1.2  # of two workers on two cores
LARGEST_ERROR = 20  # microseconds


def name_of(case):
    return f"window {case['window']}, {case['sessions']:,} session(s), {case['octets']} octets"


def silent_servers(case):
    return [server for server, figures in case["servers"].items() if figures["replies_per_second"] <= 0]


def all_cases(text, cases, wrong):
    """The limit that nothing is wrong with any case, of which there are some."""
    names = [name_of(case) for case in cases if wrong(case)]
    value = f"not with {'; '.join(names)}" if names else f"so in {len(cases)} cases"
    return Limit(text, value, bool(cases) and not names)


def of_target(target, prefix=""):
    """What reflect_bench judged itself."""
    timing = target["target"] not in FACTS
    return Limit(prefix + target["target"], f"{target['value']:.3f}", target["met"], timing=timing)


def reflect_limits(report):
    cases = report.get("cases") or []
    return [
        all_cases("every server replies", cases, silent_servers),
        all_cases("the module counts every session", cases, lambda case: case["module_sessions"] != case["sessions"]),
        *(of_target(each, f"{name_of(case)}: ") for case in cases for each in case["targets"]),
    ]


def workers_limits(report):
    gain = report["replies_by_one_worker"]
    return [
        *(of_target(each) for each in report["targets"]),
        Limit(
            f"{report['workers']} workers on {report['cores']} cores: at least {LEAST_GAIN} of one worker's replies",
            f"{gain:.3f}",
            gain >= LEAST_GAIN,
            timing=True,
        ),
    ]


def clock_limits(report):
    rows = report.get("rows") or []
    return [
        Limit("there are replies in every row", str(len(rows)), bool(rows) and all(row["replies"] for row in rows)),
        Limit("no T3 is before its T2", str(report["reversed"]), report["reversed"] == 0),
        Limit(
            f"time stamps are less than {LARGEST_ERROR} us from the wall clock",
            f"{report['largest_error_us']:.3f}",
            report["largest_error_us"] < LARGEST_ERROR,
            timing=True,
        ),
    ]
