"""publish, which never raises Error."""
import unittest

import recorder
import vu_mom
from support import BindingTest, Client


class Publish(BindingTest):

    def test_statuses(self):
        """-1 and any other value besides -2 and -3 return None."""
        for status in (0, -1, 1, 7, -4, 2 ** 31 - 1, -2 ** 31):
            recorder.answer(status)
            self.assertIsNone(self.client.publish(0, self.obj))
        for status, error in ((-2, vu_mom.InputError), (-3, MemoryError)):
            recorder.answer(status)
            with self.refuses(error, "", ["VuMom.publish"]):
                self.client.publish(0, self.obj)

    def test_keywords(self):
        """publish(db=0, obj=m) is publish(0, m)."""
        self.client.publish(0, self.obj)
        self.client.publish(db=0, obj=self.obj)
        first, second = recorder.calls()
        self.assertEqual(first, second)

    def test_counts(self):
        for given in (0, 1, 3):
            with self.refuses(TypeError, "publish() takes exactly 2 positional arguments "
                              "(%d given)" % given, ["VuMom.publish"]):
                self.client.publish(*[0] * given)

    def test_nothing_comes_back(self):
        """No callback, no context, and no reply method is needed."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        client.publish(0, self.obj)
        arguments = self.only_arguments()
        self.assertEqual((arguments["callback"], arguments["context"]), (None, None))


if __name__ == "__main__":
    unittest.main()
