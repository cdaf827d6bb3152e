"""A redis-server on a processor of its own, and two clients that do the same with it."""

import os
import shutil
import subprocess
import tempfile
import time

import hiredis  # noqa: F401  redis-py uses it where it is there
import port_pb2
import port_vu
import redis
from store.work import OBJECTS, content
from vu_global import VuGlobal
from vu_mom import VuMom


class Server:
    """Gives the path of its socket. Runs where this process does not, if there is such a place."""

    def __enter__(self):
        self.directory = tempfile.mkdtemp(prefix="vu_bench_")
        path = os.path.join(self.directory, "redis.sock")
        self.process = subprocess.Popen(
            ["redis-server", "--port", "0", "--unixsocket", path, "--save", "", "--dir"]
            + [self.directory],
            stdout=subprocess.DEVNULL,
        )
        others = set(range(os.cpu_count())) - os.sched_getaffinity(0)
        if others:
            os.sched_setaffinity(self.process.pid, {min(others)})
        while not os.path.exists(path):
            if self.process.poll() is not None:
                raise SystemExit("redis-server does not start")
            time.sleep(0.01)
        return path

    def __exit__(self, *exc_info):
        self.process.kill()
        self.process.wait()
        shutil.rmtree(self.directory)


class Ours:
    """Counts what arrives, and looks at each message."""

    class Client(VuMom):
        arrived = 0

        def on_get_bench_Port(self, msg, p):
            self.arrived += msg.result is not None

        on_subscribe_bench_Port = on_get_bench_Port

    def __init__(self, path):
        self.glb = VuGlobal(store="redis+unix://" + path)
        self.client = self.Client(self.glb)
        messages = [content(port_vu.Port, i) for i in range(OBJECTS)]
        for message in messages:
            self.client.set(0, message)
        self.names = [port_vu.Port(device=m.device, name=m.name) for m in messages]
        self.published = messages
        self.client.subscribe(1, port_vu.Port(), 0, None)

    def _in_flight(self, repeat, issue):
        client, turn = self.client, self.glb.run_once
        for start in range(0, repeat, OBJECTS):
            count = min(OBJECTS, repeat - start)
            client.arrived = 0
            issue(count)
            while client.arrived < count:
                turn(10)

    def get(self, repeat):
        def issue(count, get=self.client.get):
            for name in self.names[:count]:
                get(0, name, None)

        self._in_flight(repeat, issue)

    def publish(self, repeat):
        def issue(count, publish=self.client.publish):
            for message in self.published[:count]:
                publish(1, message)

        self._in_flight(repeat, issue)

    def close(self):
        self.glb.close()


class Redis:
    """redis-py with hiredis, keys made beforehand."""

    def __init__(self, path):
        self.redis = redis.Redis(unix_socket_path=path)
        self.messages = [content(port_pb2.Port, i) for i in range(OBJECTS)]
        self.keys = ["port:%s:%s" % (port.device, port.name) for port in self.messages]
        for key, message in zip(self.keys, self.messages):
            self.redis.set(key, message.SerializeToString())
        self.events = self.redis.pubsub(ignore_subscribe_messages=True)
        self.events.subscribe("ports")
        while not self.events.subscribed:
            self.events.get_message(timeout=1)

    def get(self, repeat):
        parse = port_pb2.Port.FromString
        for start in range(0, repeat, OBJECTS):
            pipeline = self.redis.pipeline(transaction=False)
            for key in self.keys[: min(OBJECTS, repeat - start)]:
                pipeline.get(key)
            for value in pipeline.execute():
                parse(value)

    def publish(self, repeat):
        parse, next_message = port_pb2.Port.FromString, self.events.get_message
        for start in range(0, repeat, OBJECTS):
            count = min(OBJECTS, repeat - start)
            pipeline = self.redis.pipeline(transaction=False)
            for message in self.messages[:count]:
                pipeline.publish("ports", message.SerializeToString())
            pipeline.execute()
            while count:
                event = next_message(timeout=10)
                if event is not None:
                    parse(event["data"])
                    count -= 1

    def close(self):
        self.events.close()
        self.redis.close()
