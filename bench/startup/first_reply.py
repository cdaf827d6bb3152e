"""A program that starts, stores a message, reads it back and ends."""

from port_vu import Port
from vu_global import VuGlobal
from vu_mom import VuMom


class Client(VuMom):
    def on_get_bench_Port(self, msg, p):
        global answer
        answer = msg.result


answer = None
glb = VuGlobal()
client = Client(glb)
port = Port(device="switch-17", name="eth0", speed=1000)
client.set(0, port)
client.get(0, port, None)
glb.run_once(0)
assert answer == port
