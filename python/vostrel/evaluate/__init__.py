"""The command ``vostrel-evaluate``: from a catalogue in a file to the statistics."""
