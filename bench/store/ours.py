"""The embedded store."""

import port_vu
from store.work import LENGTH, MEMBERS, OBJECTS, PAGE, TAGS, Work, content
from vu_global import VuGlobal
from vu_mom import VuMom


class Ours(Work):
    """The embedded store. Each request with a reply is answered before the next begins."""

    class Client(VuMom):
        def arrived(self, msg, p):
            msg.result  # the message, or the result that holds it

        on_get_bench_Port = on_incr_bench_Port = on_hmget_bench_Port = arrived
        on_lrange_bench_Port = on_zrangebyscore_bench_Port = arrived
        on_subscribe_bench_Port = arrived

    def __init__(self):
        super().__init__(port_vu.Port)
        self.glb = VuGlobal(store="embedded:bench")
        self.client = self.Client(self.glb)
        self.names = [(0, port_vu.Port(device=m.device, name=m.name)) for m in self.messages]
        self.values = [(0, message) for message in self.messages]

    def set(self):
        return self.cycle(self.client.set, self.values)

    def get(self):
        get, turn = self.client.get, self.glb.run_once

        def do(db, name):
            get(db, name, None)
            turn(0)

        return self.cycle(do, self.names)

    def get_in_flight(self):
        get = self.client.get

        def run(repeat, names=self.names, turn=self.glb.run_once):
            for start in range(0, repeat, OBJECTS):
                for db, name in names[: min(OBJECTS, repeat - start)]:
                    get(db, name, None)
                while turn(0):
                    pass

        return run

    def incr(self):
        incr, turn = self.client.incr, self.glb.run_once

        def do(db, message):
            incr(db, message, None)
            turn(0)

        return self.cycle(do, self.values)

    # Hashes, lists and sorted sets are objects of other databases.
    def hmset(self):
        hmset = self.client.hmset
        return self.cycle(hmset, [(1, message, TAGS) for message in self.messages])

    def hmget(self):
        self.hmset()(OBJECTS)
        hmget, turn = self.client.hmget, self.glb.run_once

        def do(db, name):
            hmget(db, name, TAGS, None)
            turn(0)

        return self.cycle(do, [(1, name) for _, name in self.names])

    def lpush(self):
        client = self.client
        elements = [(2, content(port_vu.Port, 0)) for _ in range(OBJECTS)]

        def run(repeat, push=self.cycle(client.lpush, elements)):
            push(repeat)
            client.delete(2, elements[0][1])

        return run

    def lrange(self):
        element = content(port_vu.Port)
        for _ in range(LENGTH):
            self.client.rpush(3, element)
        lrange, turn = self.client.lrange, self.glb.run_once

        def do(start):
            lrange(3, element, start, start + PAGE - 1, None)
            turn(0)

        return self.cycle(do, [(i,) for i in range(50)])

    def zset(self):
        def member(i):
            port = content(port_vu.Port)
            port.octets = i
            return port

        return [member(i) for i in range(MEMBERS)]

    def zadd(self):
        members = self.zset()
        calls = [(4, [float(i * 7919 % MEMBERS)], [m]) for i, m in enumerate(members)]
        moved = [(4, [float(i * 6007 % MEMBERS)], [m]) for i, m in enumerate(members)]
        return self.cycle(self.client.zadd, calls + moved)

    def zrangebyscore(self):
        members = self.zset()
        self.client.zadd(5, [float(i) for i in range(MEMBERS)], members)
        zrangebyscore, turn = self.client.zrangebyscore, self.glb.run_once

        def do(least, most):
            zrangebyscore(5, members[0], least, most, None)
            turn(0)

        return self.cycle(do, [(float(i), float(i + PAGE - 1)) for i in range(0, 900, 7)])

    def publish(self):
        self.subscribing = VuGlobal(self.glb.thread_master, store="embedded:bench")
        self.Client(self.subscribing).subscribe(6, self.messages[0], 2, None)
        publish = self.client.publish

        turn = self.glb.run_once

        def send(db, message):
            publish(db, message)
            turn(0)

        return self.cycle(send, [(6, self.messages[0])])

    def close(self):
        self.subscribing.close()
        self.glb.close()
