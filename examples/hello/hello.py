from hello_vu import Greeting
from vu_global import VuGlobal
from vu_mom import VuMom


class Hello(VuMom):
    def on_subscribe_hello_Greeting(self, msg, p):
        if msg.result is not None:
            print("changed:", msg.result.name)

    def on_get_hello_Greeting(self, msg, glb):
        print(msg.result.text, msg.result.name)
        glb.stop()


with VuGlobal() as glb:
    client = Hello(glb)
    client.subscribe(0, Greeting(name="world"), 1, None)
    client.set(0, Greeting(name="world", text="Hello,"))
    client.get(0, Greeting(name="world"), glb)
    glb.run()
