// placeholder of the first build; replaced by the host's settings store
