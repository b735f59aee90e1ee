"""|a - b| of two pictures of bytes: one of a - b and b - a is the answer, and the other saturates at 0."""
import numpy as np
import picture
import zori

a = picture.opened(1)
b = zori.mirror(a, zori.ZorAxsVertical)  # something to compare with
difference = zori.sub(b, a)              # the second operand less the first
zori.max_every_inplace(zori.sub(a, b), difference)

assert (difference == abs(a.astype(np.int16) - b)).all()
picture.saved(difference, "absolute_difference")
