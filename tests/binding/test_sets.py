"""The set commands: what is special about each."""
import sys
import unittest

import recorder
import vu_mom_common
from support import BindingTest, Client, Message


class Sets(BindingTest):

    def test_srem_ignores_its_third_argument(self):
        """Two arguments and three send the same, and no reply is delivered."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        sent = []
        for more, keywords in (((), {}), ((None,), {}), ((self.p,), {}),
                               ((), {"privdata": self.p})):
            recorder.clear()
            self.assertIsNone(client.srem(0, self.obj, *more, **keywords))
            sent.append(self.only_call())
        self.assertEqual(sent, sent[:1] * 4)
        arguments = dict(sent[0].arguments)
        self.assertEqual((arguments["callback"], arguments["context"]), (None, None))

    def test_srem_keeps_nothing(self):
        before = sys.getrefcount(self.p)
        self.client.srem(0, self.obj, self.p)
        self.assertEqual(sys.getrefcount(self.p), before)

    def test_sadd_with_three_arguments(self):
        with self.refuses(TypeError, "sadd() takes exactly 2 positional arguments (3 given)",
                          ["VuMom.sadd"]):
            self.client.sadd(0, self.obj, None)

    def test_srem_counts(self):
        with self.refuses(TypeError, "srem() takes at least 2 positional arguments (1 given)"):
            self.client.srem(0)
        with self.refuses(TypeError, "srem() takes at most 3 positional arguments (4 given)"):
            self.client.srem(0, self.obj, None, None)

    def test_smembers_needs_its_reply_method(self):
        client = Client(self.glb)
        self.glb.apps[:] = []
        with self.refuses(AttributeError, "'Client' object has no attribute "
                          "'on_smembers_demo_Counter'", ["VuMom.smembers", "VuMom.__getfunc"]):
            client.smembers(0, self.obj, None)
        self.assert_nothing_sent()

    def test_replies(self):
        for name, result, keywords in (("smembers", "SmembersResult", {"cls": Message}),
                                       ("scard", "ScardResult", {}),
                                       ("sismember", "SismemberResult", {})):
            recorder.clear()
            getattr(self.client, name)(0, self.obj, None)
            self.reply(self.sent_context(), 0x99)
            method, msg, _ = self.client.replies.pop()
            self.assertEqual(method, "on_%s_demo_Counter" % name)
            self.assertIs(type(msg.result), getattr(vu_mom_common, result))
            self.assertEqual(msg.result.arguments, ((0x99,), keywords))


if __name__ == "__main__":
    unittest.main()
