"""Records that tests make here go with the objects that stand for them: the package registers the classes for it."""

from libkestrel import records as records
