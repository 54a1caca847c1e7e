"""Running hosts, asked and listened to, in threads and in event loops."""

import asyncio
import json
import os
import socket
import threading

import pytest

import gksensors
from conftest import RunningHost, wait_until

# A touch between two ticks of a host in real time would not be noticed.
RAISE = ("GKMemory.raiseEvent", "MineTouched")


@pytest.fixture
def host(host_address):
    with gksensors.connect(host_address) as connected:
        yield connected


def run(coroutine):
    return asyncio.run(asyncio.wait_for(coroutine, 30))


def test_calls_keys_and_modules(host):
    assert isinstance(host.call("GKBattery.getBatteryCharge"), int)
    host.set("Mine/ä b?", 0.1)
    assert host.get("Mine/ä b?") == 0.1
    host.set({"Mine/a": True, "Mine/c": [1, 2.5, None]})
    assert host.get(["Mine/a", "Mine/c", "Mine/Nothing"]) == {
        "Mine/a": True,
        "Mine/c": [1, 2.5, None],
    }
    assert "GKRobotPose" in [module.name for module in host.modules()]
    assert [module.is_extractor for module in host.modules() if module.name == "GKSonar"] == [True]
    assert "robotPose" in host.keys() and host.keys("*/AngleX/*") == [
        "Device/SubDeviceList/InertialSensor/AngleX/Sensor/Value"
    ]


def test_errors_are_exceptions_with_the_hosts_texts(host):
    with pytest.raises(KeyError, match="there is no key Mine/Nothing"):
        host.get("Mine/Nothing")
    with pytest.raises(gksensors.CallError, match='Motion/IsStand: takes a float, not "x"'):
        host.set("Motion/IsStand", "x")
    with pytest.raises(gksensors.CallError) as failed:
        host.call("GKMemory.getData", "Nothing")
    assert (failed.value.code, failed.value.module) == (-32000, "GKMemory")
    with pytest.raises(gksensors.InputError, match="is no host"):
        gksensors.connect("127.0.0.1:port")
    with pytest.raises(gksensors.InputError, match="token"):
        gksensors.connect(token="a\r\nb")


def test_events_that_come_after_it_is_there_are_not_missed(host):
    with host.events("Mine*", timeout=20) as events:
        for value in (1.0, 0.0, 1.0):
            host.call(*RAISE, value)
            event = next(events)
            assert (event.name, event.value, event.kind) == ("MineTouched", value, "event")


def test_a_word_means_names_that_it_is_a_part_of(host):
    with host.events("eTouch", timeout=20) as events:
        host.call(*RAISE, True)
        assert next(events).name == "MineTouched"


def test_watching_begins_with_the_present_values(host):
    host.set({"Watched/x": 1.0, "Watched/y": 2.0})
    with host.watch("Watched/x", "Watched/?", timeout=20) as changes:
        assert {next(changes), next(changes)} == {("Watched/x", 1.0), ("Watched/y", 2.0)}
        host.set("Watched/y", 3.0)
        assert next(changes) == gksensors.Change("Watched/y", 3.0)
    with pytest.raises(ValueError, match="needs a key"):
        host.watch()


def test_waiting_in_vain_ends_with_the_time_out(host):
    with host.events("NothingOfThisName", timeout=0.05) as events:
        with pytest.raises(TimeoutError, match="nothing came"):
            next(events)


def test_closing_ends_whoever_waits(host_address):
    host = gksensors.connect(host_address)
    events = host.events("NothingOfThisName")
    found = []
    reader = threading.Thread(target=lambda: found.extend(events))
    reader.start()
    host.close()
    reader.join(20)
    assert not reader.is_alive() and found == []
    with pytest.raises(ConnectionError, match="closed"):
        host.get("robotPose")
    with pytest.raises(ConnectionError, match="closed"):
        host.events()
    assert repr(host) == f"<Host {host_address}, closed>"


def test_a_host_that_goes_is_a_connection_error(host_to_end):
    with gksensors.connect(host_to_end.address) as host:
        events = host.events("NothingOfThisName")
        host_to_end.stop("kill")
        with pytest.raises(ConnectionError):
            next(events)
        with pytest.raises(ConnectionError):
            host.get("robotPose")
    with pytest.raises(ConnectionError, match="no host answers at"):
        gksensors.connect(host_to_end.address)


def test_threads_share_a_connection(host):
    def work(number):
        for value in range(50):
            host.set(f"Mine/Thread{number}", value)
            assert host.get(f"Mine/Thread{number}") == value

    threads = [threading.Thread(target=work, args=(number,)) for number in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert [host.get(f"Mine/Thread{number}") for number in range(4)] == [49] * 4


def test_a_fork_has_a_connection_of_its_own(host):
    host.set("Mine/Fork", 1)
    events = host.events("Mine*", timeout=20)
    child = os.fork()
    if child == 0:
        code = 1
        try:
            host.set("Mine/Fork", 2)
            events.close()
            host.close()
            code = 0
        finally:
            os._exit(code)
    assert os.waitpid(child, 0)[1] == 0
    assert host.get("Mine/Fork") == 2
    host.call(*RAISE, 3.0)
    assert next(events).value == 3.0


def test_a_large_value_goes_both_ways(host):
    text = "ü" * 30_000
    host.set("Mine/Large", text)
    assert host.get("Mine/Large") == text
    with host.watch("Mine/Large", timeout=20) as changes:
        assert next(changes).value == text


def test_a_host_with_a_token_wants_it(tmp_path):
    token = "0123456789abcdefghijklmnopqrstuv"
    path = tmp_path / "token"
    path.write_text(token + "\n")
    path.chmod(0o600)
    host = RunningHost("--robot", "none", "--token-file", str(path))
    try:
        with pytest.raises(PermissionError):
            gksensors.connect(host.address)
        with gksensors.connect(host.address, token=path.read_text()) as connected:
            assert connected.get("Motion/IsStand") == 0.0
            with connected.events() as events:
                assert "closed" not in repr(events)

        async def again():
            with pytest.raises(PermissionError):
                await gksensors.aio.connect(host.address)
            async with gksensors.aio.connect(host.address, token) as connected:
                return await connected.get("Motion/IsStand")

        assert run(again()) == 0.0
    finally:
        host.stop()


def test_what_is_no_host_is_a_connection_error():
    server = socket.create_server(("127.0.0.1", 0))

    def answer():
        for reply in (b"SSH-2.0-OpenSSH\r\n\r\n", b"HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n"):
            connection, _ = server.accept()
            connection.recv(1 << 16)
            connection.sendall(reply)
            connection.close()

    thread = threading.Thread(target=answer)
    thread.start()
    for _ in range(2):
        with pytest.raises(ConnectionError, match="is no host of gk"):
            gksensors.connect(f"127.0.0.1:{server.getsockname()[1]}")
    thread.join()
    server.close()


def test_coroutines_give_the_same(host_address):
    async def main():
        async with gksensors.aio.connect(host_address) as host:
            assert isinstance(await host.call("GKBattery.getBatteryCharge"), int)
            await host.set({"Mine/Aio": 1})
            assert await host.get(["Mine/Aio", "Mine/Nothing"]) == {"Mine/Aio": 1}
            assert "GKFsr" in [module.name for module in await host.modules()]
            with pytest.raises(KeyError):
                await host.get("Mine/Nothing")
            with pytest.raises(gksensors.CallError):
                await host.call("GKMemory.getData", "Nothing")
            async with host.events("Mine*", timeout=20) as events:
                await host.call(*RAISE, 1.0)
                async for event in events:
                    assert event.value == 1.0
                    break
            async for change in host.watch("Mine/Ai?", timeout=20):
                assert change == ("Mine/Aio", 1)
                break
            with pytest.raises(TimeoutError):
                async for event in host.events("NothingOfThisName", timeout=0.05):
                    pass
            values = await asyncio.gather(*(host.get("Mine/Aio") for _ in range(20)))
            assert values == [1] * 20

        with pytest.raises(ConnectionError, match="closed"):
            await host.get("Mine/Aio")

    run(main())


def test_a_cancelled_task_leaves_the_host_usable(host_address):
    async def main():
        host = await gksensors.aio.connect(host_address)
        other = await gksensors.aio.connect(host_address)
        slow = asyncio.ensure_future(host.call("GKSonar.subscribe", "me"))
        about = gksensors.aio.Request("GET", "/api/v1/host")
        while json.loads(await other._request(about))["callsRunning"] == 0:
            pass
        slow.cancel()
        with pytest.raises(asyncio.CancelledError):
            await slow
        assert isinstance(await host.call("GKBattery.getBatteryCharge"), int)

        async def listen():
            async for _ in host.events("NothingOfThisName"):
                pass

        listening = asyncio.ensure_future(listen())
        while not any(one._stream.is_ready for one in host._listening):
            await asyncio.sleep(0.001)
        listening.cancel()
        with pytest.raises(asyncio.CancelledError):
            await listening
        await host.close()
        await other.close()

    run(main())


def test_a_host_that_goes_ends_coroutines(host_to_end):
    async def main():
        async with gksensors.aio.connect(host_to_end.address) as host:
            async with host.events("NothingOfThisName") as events:
                host_to_end.stop("kill")
                with pytest.raises(ConnectionError):
                    await events.__anext__()
                with pytest.raises(ConnectionError):
                    await host.get("robotPose")

    run(main())


def test_nobody_at_home_is_a_connection_error_for_coroutines(host_to_end):
    host_to_end.stop()

    async def main():
        await gksensors.aio.connect(host_to_end.address)

    with pytest.raises(ConnectionError, match="no host answers at"):
        run(main())


def test_connections_that_nobody_holds_are_closed(host):
    before = len(os.listdir("/proc/self/fd"))
    for _ in range(5):
        host.watch("robotPose")
    wait_until(lambda: len(os.listdir("/proc/self/fd")) == before)
