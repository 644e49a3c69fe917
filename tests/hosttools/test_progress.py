"""The percentage in a task's record."""

from __future__ import annotations

import json
import random

from stalling import StallingServer
from support import Host, TinyDepot, spec, wait_for
from test_tasks import paused, release


def _parts(depot: TinyDepot) -> tuple[int, int]:
    """Bytes to transfer for base 1 and for component alpha 1."""
    sizes = {offer.part.ref: sum(entry.archived for entry in offer.objects) for offer in depot.offers()}
    return sizes["base/ryn/1"], sizes["component/alpha/1"]


def test_bytes_pulled_of_bytes_needed_from_a_folder(host: Host, depot: TinyDepot) -> None:
    base, component = _parts(depot)
    task, process = paused(host, "pull.Puller._fetch", "apply", spec("1", {"alpha": "1"}), [depot.url])
    shared = 100  # bytes of folder metadata that both have, at most
    low, high = (3 + 82 * base / (base + component + extra) for extra in (shared, -shared))
    assert int(low) <= host.database.get(task).progress_completed <= high
    release(process)
    assert host.end(task, process).progress_completed == 100


def test_bytes_pulled_of_bytes_needed_from_a_server(host: Host, depot: TinyDepot) -> None:
    depot.base("9", files={f"usr/lib/many/{index}": random.Random(index).randbytes(2000).hex() for index in range(40)})
    with StallingServer(depot.path, 20) as server:
        task, process = host.start("apply", spec("9"), [server.url])
        assert server.stalled.wait(60)
        halfway = wait_for(lambda: (host.database.get(task).progress_completed > 15) and
                           host.database.get(task).progress_completed, "progress")
        assert 15 < halfway < 70
        server.released.set()
        record = host.end(task, process)
    assert (record.status, record.progress_completed) == ("SUCCEEDED", 100)


def test_a_stage_of_what_is_there_is_done_at_once(host: Host, depot: TinyDepot) -> None:
    host.succeed("stage", spec("1"), [depot.url])
    record = host.succeed("stage", spec("1"), [depot.url])
    assert json.loads(record.result)["pulled_bytes"] == 0
